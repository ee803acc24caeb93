#pragma once

#include "station/runner.h"

// What the files of a panel must hold after everything that was done to it since it was
// factory-new: a second book, kept from the station's side alone, and compared byte for byte (dates
// by their form).
class PanelFiles {
public:
    // `folder`: where the panel's /usr/local/ict lies on this machine. `items`: the item lines by
    // level.
    PanelFiles(QString folder, QVector<QStringList> items);

    // Level at which the panel starts next: what its level file says, anything unknown being ICT.
    int level() const;
    // The station number that the panel has been given, 0 for none.
    int station() const;
    bool released() const
    {
        return level_ == "HMI\n";
    }

    void booted();
    void exchanged(const StepResult &result);
    // What differs, empty for nothing. Waits up to `patienceMs` for the panel to finish writing.
    QStringList faults(int patienceMs) const;
    QByteArray resumeLog() const
    {
        return read("HMI_Factory_Resume.txt");
    }

private:
    QByteArray date() const;
    QByteArray read(const QString &name) const;
    QByteArray flagFile(int level) const;
    void setItem(int level, int item, char result);
    void append(const QByteArray &lines)
    {
        resume_ += lines;
    }
    void traffic(const StepResult &result);
    void endChecked(const StepResult &result);
    void changed(const QByteArray &level);
    void identified(const QByteArray &id);
    void compare(QStringList *faults, const QString &name, const QByteArray &wanted) const;
    void compareFactoryLog(QStringList *faults) const;
    QStringList differences() const;

    QString folder_;
    QVector<QStringList> items_;
    QByteArray level_ = "ICT\n";
    int running_ = 0; // level the panel runs at since its last start
    QByteArray flags_[4]; // result characters; empty: no file
    QByteArray resume_; // dates as date()
    int year_ = 0;
    QList<QByteArray> records_; // of the factory log, without their date
    QHash<QString, QByteArray> identities_; // files with station number and IDs
    int factory_ = 0;
};
