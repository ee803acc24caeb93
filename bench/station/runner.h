#pragma once

#include "station/console.h"
#include "station/stand.h"
#include "station/verdict.h"

#include <QElapsedTimer>

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

// Runs plans over a link and tells the terminal. Several runners may live in several threads.
class Runner {
public:
    struct Options {
        int number = 0; // the panel's station number, which its replies must carry at burn-in
        QString label; // begins every line where several panels are tested at once
        bool strict = false; // see judge()
        bool verbose = false; // shows requests and answers
    };
    Runner(Link &link, Stand &stand, Values values, Options options);

    // Fills `level` step by step, so that what was done is there when this throws: BenchError once
    // the application or thread was told to stop. Ends before the plan does when the panel or the
    // port turns out to be dead: nobody is asked anything about it.
    void run(const Plan &plan, LevelResult *level);
    // One step; as often as the stand wants it again.
    StepResult runStep(const Step &step, int level);

private:
    StepResult attempt(const Step &step, int level);
    QString whyDead(const StepResult &result, int level);
    void act(const QStringList &actions, StepResult *result);
    void showProgress(const Plan &plan, int step) const;
    void report(const StepResult &result, const QString &place) const;

    Link &link_;
    Stand &stand_;
    Values values_;
    Options options_;
    QElapsedTimer attempt_; // since the step was begun
    bool heard_ = false; // the panel has answered once
    QString dead_; // why nothing more is asked of it
};
