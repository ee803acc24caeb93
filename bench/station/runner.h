#pragma once

#include "station/codec.h"
#include "station/link.h"
#include "station/plan.h"
#include "station/stand.h"

struct StepResult {
    Step step;
    QByteArray request;
    Link::Answer answer;
    Reply reply;
    QString meaning;
    QStringList faults; // empty: passed
    double overheadMs() const
    {
        return answer.ms - step.waitMs;
    }
};

struct LevelResult {
    QString level; // its name
    QString plan; // the plan's file
    QByteArray planHash; // SHA-256 of its text, as hex digits
    QStringList items;
    QVector<StepResult> steps;
    QMap<QString, QImage> screens;
    QStringList faults; // of the panel as a whole and of the place where it stands
    QByteArray resumeLog; // the panel's own log, empty where it cannot be read

    bool passed() const;
    // Over the steps that cover an item and need nobody between request and answer; 0 without any.
    double medianOverheadMs() const;
};

// Runs plans over a link, with a live table on the terminal. Several runners may live in several
// threads.
class Runner {
public:
    // `number`: the panel's station number, which its replies must carry at burn-in. `label` begins
    // every line of the table where several panels are tested at once. `strict`: noise around a
    // good reply is a fault too.
    Runner(Link &link, Stand &stand, Values values, int number = 0, QString label = {},
           bool strict = false);

    // Fills `level` step by step, so that what was done is there when this throws: BenchError once
    // the application or thread was told to stop.
    void run(const Plan &plan, LevelResult *level);
    StepResult runStep(const Step &step, int level);

private:
    void judge(StepResult *result, int level) const;
    void report(const StepResult &result) const;

    Link &link_;
    Stand &stand_;
    Values values_;
    int number_;
    QString label_;
    bool strict_;
};

// One line on standard output, never torn by another thread's; red for bad news where the terminal
// can.
void say(const QString &line, bool bad = false);
