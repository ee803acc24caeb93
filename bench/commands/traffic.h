#pragma once

#include "panel/virtualpanel.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonObject>
#include <QTimer>

#include <array>
#include <cstdio>

// Writes down what goes over the ports of a panel. On the screen a line a message: time since the
// start in seconds, port, direction as the panel sees it, the bytes, and on the PC link what they
// mean. As a record the exchanges of the PC link, for `bench station --plan`; a plan has one level,
// so those at the level of the first power-on only. The panel must outlive it.
class Traffic : public QObject {
    Q_OBJECT

public:
    // `screen`: null for nothing. `record`: path of the file, empty for none. Throws BenchError.
    Traffic(VirtualPanel &panel, FILE *screen, const QString &record);
    ~Traffic() override;

    // A line on the screen for what happens beside the ports.
    void note(const QString &what);

private:
    struct Line { // one port
        QTimer quiet;
        QByteArray messages[2]; // that have begun: from the panel, and into it
    };
    void powered(bool on);
    void add(Port port, bool in, const QByteArray &bytes);
    void finish(Port port);
    void write(Port port, bool in, const QByteArray &bytes);
    QString meaning(bool in, const QByteArray &bytes);
    void record(bool in, const QByteArray &bytes);
    void endStep();

    VirtualPanel &panel_;
    int level_ = -1, recordLevel_ = -1;
    std::array<Line, portCount> lines_;
    FILE *screen_;
    QFile record_;
    QJsonObject step_; // of the record, still open
    QByteArray separator_ = "\n    "; // before the next step
    QByteArray code_; // of the last request; empty for what is none
    bool deaf_ = false; // an end check was answered since the power came on
    QElapsedTimer clock_;
};
