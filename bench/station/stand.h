#pragma once

#include <QImage>
#include <QJsonArray>
#include <QMap>
#include <QString>

// The place where the panel stands: what a plan may ask of it around an exchange. An action is one
// text, a verb and its argument; docs/plans.md explains them all, plans/actions.json has their form
// and what a person is asked. "settle SECONDS" comes from the runner: to wait while a released
// panel archives its logs and clears its SRAM, for with its power cut it would keep test data. Who
// cannot see the end of it waits so long.
class Stand {
public:
    virtual ~Stand() = default;
    // Empty if it was done, else what went wrong.
    virtual QString act(const QString &action) = 0;
    // Whether a step that failed so shall be tried again.
    virtual bool wantsAgain(const QString &)
    {
        return false;
    }
    // Screens kept by "screenshot", by name.
    QMap<QString, QImage> screens;
};

// What is wrong with an action's text, empty if nothing; `known` are rows of actions.json.
QString actionFault(const QString &action, const QJsonArray &known);

// A real panel: a person does what the plan asks and confirms it on the terminal.
class TerminalStand : public Stand {
public:
    // `actions`: rows of actions.json. `unattended` takes every confirmation as given.
    TerminalStand(const QString &port, const QJsonArray &actions, bool unattended)
        : port_(port)
        , actions_(actions)
        , unattended_(unattended)
    {
    }
    // Throws BenchError when the thread is asked to stop while it waits for the person.
    QString act(const QString &action) override;
    // Asks only a person who sits at a terminal. Throws as act() does.
    bool wantsAgain(const QString &fault) override;

private:
    void settle(int seconds);

    QString port_;
    QJsonArray actions_;
    bool unattended_;
};
