#pragma once

#include "panel/boundprocess.h"
#include "panel/virtualpanel.h"

#include <QTimer>

// Shows and records what goes over the ports of a panel: tells it, event by event, to traffic.py,
// which says how. The panel must outlive it.
class Traffic : public QObject {
public:
    // `record`: path of the file, empty for none. Throws BenchError.
    Traffic(VirtualPanel &panel, bool screen, const QString &record);
    // Returns when all is shown and recorded.
    ~Traffic() override;

    // A line on the screen for what happens beside the ports.
    void note(const QString &what)
    {
        tell("note " + what);
    }

private:
    void tell(const QString &event, qint64 ns = monotonicNs());

    const qint64 start_ = monotonicNs();
    BoundProcess program_;
    QTimer quiet_;
};
