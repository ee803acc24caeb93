#pragma once

#include <QSerialPort>
#include <functional>

// The serial line to one panel, or at burn-in to several. Waits in the caller's event loop, so that
// whatever else lives in that thread (the virtual panel's cables and probes) goes on meanwhile.
class Link {
public:
    // Opens a serial device or a pty, with the line settings of a level (protocol.h): 9600 baud 7E1
    // at burn-in, which is RS-485, else 8E1 with RTS/CTS. Throws BenchError with the remedy.
    void open(const QString &path, int level);
    struct Request {
        QByteArray bytes;
        int timeoutMs = 2000; // for each try; counted anew for the last one when `during` returns
        int tries = 1;
        bool framed = true; // the answer is a frame: anything else is noise and waited past
        bool silence = false; // no answer is due: one try, waits the whole time-out
        std::function<void()> during; // what must happen between request and answer
    };
    struct Answer {
        QByteArray bytes; // all that came, noise included; empty for silence
        double ms = 0; // of the last try, from the first byte written to the last read, or waited
        int tries = 0;
        QString error; // the port failed
    };
    // Throws BenchError when the application was told to quit (Ctrl-C) meanwhile, or the thread by
    // QThread::exit().
    Answer exchange(const Request &request);
    // Why the port is of no use any more; empty if it is.
    QString failure() const;

private:
    bool awaitBytes(int ms);
    QByteArray awaitAnswer(const Request &request, qint64 *lastByteNs);

    QString path_;
    QSerialPort port_;
    QByteArray lastAnswer_;
    int owed_ = 0; // answers that a repeated request may still bring
};
