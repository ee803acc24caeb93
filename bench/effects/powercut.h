#pragma once

#include "effects/trace.h"
#include "panel/virtualpanel.h"

#include <QMap>
#include <QSet>

#include <optional>

// The panel's files that a boot takes notice of, by path: those of /usr/local/ict but scripts and
// logs, the pointer calibration and the time zone.
using PanelState = QMap<QByteArray, QByteArray>;
bool isState(const QByteArray &path);
PanelState stateOf(const VirtualPanel &panel);
// Makes the panel, which is off, factory-new but for these files.
void putState(VirtualPanel &panel, const PanelState &state);

// Which states a cut of power can leave after each of the agent's calls. What was synced is there.
// Of a file that was not, any of its contents since may be there: none (created or removed), empty,
// each later one, at each later length; of a write also what lies within the old length, or before
// the end of a sector: a sector is stored whole or not at all. A file knows nothing of another.
class CutModel {
public:
    explicit CutModel(const PanelState &start);
    // False if the call left these files alone.
    bool add(const Operation &operation);
    QVector<PanelState> states() const;
    const PanelState &now() const // as programs on the panel see it
    {
        return now_;
    }

private:
    using Content = std::optional<QByteArray>; // none: no such file

    void offer(const QByteArray &path, const Content &content);
    bool become(const QByteArray &path, const Content &content);
    bool written(const Operation &operation);

    PanelState now_;
    QMap<QByteArray, QVector<Content>> possible_; // of the files that are not settled; none twice
};

// What was done to the panel when its power was cut.
struct Cut {
    PanelState before, now; // before the request or boot; at the cut, as programs saw it
    QByteArray target; // what the request makes of the level file; as before if it changes no level
    bool confirmed = false; // the station had its answer
    bool atRest = false; // and the panel had done all that belongs to it
    QSet<int> items; // which of the level's it may change, from 0
};

// What the agent made of it at the next boot.
struct Revival {
    bool answers = false; // on the PC link
    QByteArray level; // that it booted at, as its log says
    PanelState files;
};

// Boots panels side by side. `begin` is asked for the next one to boot: it prepares the panel,
// which is off, and says how the result is to be taken; a null one ends it.
using Taker = std::function<void(const Revival &)>;
void revive(QVector<VirtualPanel *> panels, const std::function<Taker(VirtualPanel &)> &begin);

// What is wrong with it; empty for nothing. A level is the one before or the target, and the target
// once it was confirmed; a new level begins without results; no item is passed or lost that the
// request does not test; a confirmed identity is there; the calibration can be used.
QString verdict(const Cut &cut, const Revival &revival);
// The items, from 0, that a level's flag file says are passed.
QSet<int> passedItems(const PanelState &state, const QByteArray &level);
// "ICT", "T1", "BI" or "T2": where the agent boots.
QByteArray bootLevel(const PanelState &state);
