#pragma once

#include "panel/ptyport.h"

#include <QElapsedTimer>
#include <QTimer>

#include <cstdio>

// Writes down what goes over one port of a panel, a line for each message: time since the start in
// seconds, port, direction as the panel sees it, the bytes, and on the PC link what they mean.
class Traffic : public QObject {
    Q_OBJECT

public:
    // Where the lines go; null for nowhere. The record has tabs between the columns, for
    // `bench replay`. Written from the thread that creates this.
    struct Sinks {
        FILE *screen, *record;
    };
    Traffic(PtyPort *port, const Sinks &sinks);

private:
    struct Message {
        const char *arrow;
        QByteArray bytes;
    };
    void add(Message &message, const QByteArray &bytes);
    void finish(Message &message);
    QString meaning(const Message &message);

    const char *name_;
    const bool link_; // the PC link runs here, at some level
    Message in_{"->", {}}, out_{"<-", {}};
    QByteArray code_; // of the last request; empty for what is none
    QTimer quiet_;
    QElapsedTimer clock_;
    const Sinks sinks_;
};
