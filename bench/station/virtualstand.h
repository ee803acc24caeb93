#pragma once

#include "fixture/finger.h"
#include "fixture/fixture.h"
#include "panel/virtualpanel.h"
#include "station/panelfiles.h"
#include "station/stand.h"

// The port of the PC link at a level (protocol.h).
Port linkPort(int level);

// The stand of a panel that is not there: does everything itself and looks at the panel's screen
// and files with eyes of its own. Neither panel nor
// fixture is owned.
class VirtualStand : public Stand {
public:
    // Without a fixture it refuses what the fixture does: "plug", "unplug" and "fault".
    VirtualStand(VirtualPanel &panel, Fixture *fixture);

    // The pty of that port.
    QString port(int level) const;
    QString act(const QString &action) override;

    // Switches on and waits until the panel listens on its PC link. Empty, or what went wrong.
    QString powerOn();
    PanelFiles files; // what "files" compares
    QString stateFolder; // of the texts that it compares them with; empty: it does not

private:
    // The verbs; results as of act().
    QString powerCycle(const QString &);
    QString keepScreen(const QString &name);
    QString compare(const QString &state);
    QString settle(const QString &); // sees the end of it in the panel's log
    QString look(const QString &wanted);
    QString touch(const QString &how);
    QString agree(const QString &)
    {
        return {};
    }

    VirtualPanel &panel_;
    Fixture *const fixture_;
    Finger finger_;
};

// What a panel's own software says it is: "model" (without the line's prefix), "version" and "crc",
// worked out from what lies on the virtual panel.
Values identityOf(const VirtualPanel &panel);
