#pragma once

#include "fixture/finger.h"
#include "panel/virtualpanel.h"
#include "station/panelfiles.h"
#include "station/stand.h"

#include <functional>

// The stand of a panel that is not there: does everything itself and looks at the panel's screen
// and files with eyes of its own. Neither panel nor files are owned.
class VirtualStand : public Stand {
public:
    VirtualStand(VirtualPanel &panel, PanelFiles &files);

    QString port(int level) const override;
    QString act(const QString &verb, const QString &argument) override;

    // Switches on and waits until the panel listens on its PC link. Empty, or what went wrong.
    QString powerOn();
    // What "plug", "unplug" and "fault" do; the fixture's part. Same result as act().
    std::function<QString(const QString &verb, const QString &argument)> fixture;

private:
    QString powerCycle();
    QString look(const QString &wanted);
    QString keepScreen(const QString &name);
    QString touch(const QString &how);

    VirtualPanel &panel_;
    PanelFiles &files_;
    Finger finger_;
};

// What a panel's own software says it is: "model" (without the line's prefix), "version" and "crc",
// worked out from what lies on the virtual panel.
Values identityOf(const VirtualPanel &panel);
