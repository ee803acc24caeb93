#pragma once

#include <QLocalServer>

#include <functional>

// The door through which other programs of this user act on a running panel: a socket in its
// folder that takes one line (a verb and its argument, as in a plan) and answers with one: "ok",
// what was asked for, or "error: " and what is wrong. Served by the event loop of the thread that
// made it.
class PanelControl : public QObject {
public:
    // Does what the line says; the answer, empty for a mere "ok". Throws BenchError.
    using Action = std::function<QString(const QString &verb, const QString &argument)>;

    // Throws BenchError when the socket cannot be made.
    PanelControl(const QString &panelFolder, Action action);

    // The other end. An empty folder stands for the only panel of this user that runs. Throws
    // BenchError when no panel runs there or it refuses; the answer else, "ok" at least.
    static QString send(const QString &panelFolder, const QString &line);

private:
    void serve();

    const Action action_;
    QLocalServer server_;
};
