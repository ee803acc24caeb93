#pragma once

#include "fixture/fixture.h"
#include "panel/board.h"
#include "panel/virtualpanel.h"
#include "station/protocol.h"
#include "station/runner.h"

// A whole ARM machine, factory-new, on its fixture and with a station: for the looks at it and the
// cuts of its power.
struct BoardRig {
    explicit BoardRig(IctDisk disk = IctDisk::normal);

    // Returns when the agent listens at the level that the panel's file has. Throws when the panel
    // does not come up.
    void powerOn();
    QByteArray run(const QString &command)
    {
        return panel.board()->run(command);
    }
    // What the panel answers within `ms`, empty for nothing; ids and the like as `argument`.
    QByteArray ask(const char *code, const QString &argument = {}, int ms = 120000);

    VirtualPanel panel;
    Fixture fixture;
    Link link;
    int level = Ict;
};

// Cuts the power `cuts` times at random moments of production and looks at what is left each time.
// Exit status 0 if nothing is lost.
int cutBoardPower(int cuts, uint seed);
