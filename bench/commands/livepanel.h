#pragma once

#include "commands/traffic.h"
#include "fixture/fixture.h"
#include "fixture/virtualstand.h"

// A panel that stays on, and what other programs may have done to it: `bench power`, `fault`,
// `touch`, `look` and `screenshot`. All that it is given must outlive it.
class LivePanel {
public:
    // `fixture` and `traffic` may be null.
    LivePanel(VirtualPanel &panel, Fixture *fixture, Traffic *traffic,
              const QStringList &agentArgs);

    // Does what the line says and waits until it is done; the answer, empty for a mere "ok": to
    // "look" and "touch" what is wrong with the panel. Throws BenchError.
    QString obey(const QString &verb, const QString &argument);
    // True while the power is off because somebody wanted it so.
    bool isSwitchedOff() const
    {
        return switchedOff_;
    }

private:
    void power(const QString &order);
    void screenshot(const QString &file);
    QString act(const QString &verb, const QString &argument);

    VirtualPanel &panel_;
    Fixture *const fixture_;
    Traffic *const traffic_;
    const QStringList agentArgs_;
    VirtualStand stand_;
    bool switchedOff_ = false;
};
