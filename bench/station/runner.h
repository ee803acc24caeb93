#pragma once

#include "station/console.h"
#include "station/report.h"
#include "station/stand.h"
#include "station/verdict.h"

#include <QElapsedTimer>

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

    // Fills the report's last level step by step, so that what was done is there when this throws:
    // BenchError once the application or thread was told to stop. Ends before the plan does when
    // the panel or the port turns out to be dead: nobody is asked anything about it.
    void run(const Plan &plan, Report *report);
    // One step, as often as the stand wants it again; its record.
    QJsonObject runStep(const Step &step, int level);
    // Whether the panel was asked anything and either answered or let the time pass.
    bool asked() const
    {
        return asked_;
    }

private:
    QJsonObject attempt(const Step &step, int level);
    void runSteps(const Plan &plan, QJsonObject *level);
    QString whyDead(const Link::Answer &answer, int level);
    QStringList act(const QJsonValue &actions);
    void showProgress(const Plan &plan, int step) const;
    void tell(const QJsonObject &record, const QString &place) const;

    Link &link_;
    Stand &stand_;
    Values values_;
    Options options_;
    QElapsedTimer attempt_; // since the step was begun
    bool asked_ = false; // see asked()
    bool heard_ = false; // the panel has answered once
    QString dead_; // why nothing more is asked of it
};
