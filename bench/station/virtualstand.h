#pragma once

#include "fixture/finger.h"
#include "panel/virtualpanel.h"
#include "station/panelfiles.h"
#include "station/stand.h"

#include <functional>

// The stand of a panel that is not there: does everything itself and looks at the panel's screen
// and files with eyes of its own. The panel is not owned.
class VirtualStand : public Stand {
public:
    explicit VirtualStand(VirtualPanel &panel);

    // The pty of the PC link at a level (protocol.h).
    QString port(int level) const;
    QString act(const QString &action) override;
    QString settle(int seconds) override; // sees the end of it in the panel's log

    // Switches on and waits until the panel listens on its PC link. Empty, or what went wrong.
    QString powerOn();
    // What "plug", "unplug" and "fault" do; the fixture's part. Same result as act().
    std::function<QString(const QString &verb, const QString &argument)> fixture;
    PanelFiles files; // what "files" compares
    QString stateFolder; // of the texts that it compares them with; empty: it does not

private:
    QString look(const QString &wanted);
    QString keepScreen(const QString &name);
    QString touch(const QString &how);

    VirtualPanel &panel_;
    Finger finger_;
};

// What a panel's own software says it is: "model" (without the line's prefix), "version" and "crc",
// worked out from what lies on the virtual panel.
Values identityOf(const VirtualPanel &panel);
