#pragma once

#include <QObject>

// The panel's two clocks, each kept as seconds ahead of this machine's: the system clock, which
// libfaketime shows to every process of the panel, and the battery-backed RTC, which survives power
// cycles and gives the system clock its time at power-on. The panel's own `date` and `hwclock`
// write the same files. Lives in the panel's I/O thread, which keeps the RTC's attribute at the
// current second; the functions may be called from any thread.
class PanelClock : public QObject {
    Q_OBJECT

public:
    // `folder` holds the clocks' files; `attribute` is the RTC's since_epoch file. Both must exist.
    PanelClock(const QString &folder, const QString &attribute);

    // Makes every reading of the RTC wrong by so many seconds; 0 repairs it.
    void setRtcFault(double seconds);

    // For VirtualPanel: the system clock starts from the RTC.
    void powerOn();

private:
    double read(const char *name) const;
    void write(const char *name, double seconds) const;
    void refresh();

    const QString folder_, attribute_;
    qint64 shown_ = -1;
};
