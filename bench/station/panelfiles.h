#pragma once

#include "station/plan.h"

// What lies on a panel, compared with expected states: texts in the plans' folder that a person can
// read. A state has a section for each file it speaks of, headed "[PATH]", "[PATH new]"
// for a log whose earlier part was compared before and must not have changed, or "[PATH records N]"
// for a file of records of N bytes. Below stand its lines, as printable() shows them, their line
// end included; of a PATH with "*" in its last part, the names that fit. A run of zero bytes is
// "\0*COUNT", in records "\0" for what fills them up. "${name}" stands for a value of the plan,
// "${old}" for a date of 2015, where the clock of a new panel is, "${now}" for one of today's year,
// "${any}" for anything; any other name takes what it meets first and must be the same from then
// on. "#" begins a comment.
class PanelFiles {
public:
    // `root`: where the panel's "/" lies on this machine.
    explicit PanelFiles(QString root)
        : root_(std::move(root))
    {
    }

    Values values; // what the names in a state stand for; grows by those that it meets

    // Level at which the panel starts next: what its level file says, anything unknown being ICT.
    int level() const;
    bool released() const
    {
        return read("/usr/local/ict/HMI_TEST_LEVEL.txt") == "HMI\n";
    }
    QByteArray read(const QString &path) const; // empty if missing
    // What differs from the state in `file`, empty for nothing. Waits up to `patienceMs` for the
    // panel to finish writing.
    QStringList differences(const QString &file, int patienceMs);
    // Items of `level` whose results on the panel are not what it answered in the record's `steps`:
    // for panels with faults, whose states nobody has written down.
    QStringList itemFaults(int level, const QJsonArray &steps, int patienceMs) const;

private:
    struct Section {
        QString path;
        int recordSize = 0;
        bool isNew = false;
        QStringList lines; // expected
    };
    static QVector<Section> sectionsOf(const QString &text);
    QStringList linesOf(const Section &section) const;
    QString difference(const Section &section, QHash<QString, QStringList> *seen,
                       Values *values) const;

    QString root_;
    QHash<QString, QStringList> seen_; // lines of the logs that were compared before
};
