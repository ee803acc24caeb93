#pragma once

#include "effects/trace.h"

#include <QSet>
#include <QStringList>

// Tells in plain lines what the agent does to the panel, from its calls to the kernel. What the
// lines mean stands in tests/effects/README.md.
class Journal {
public:
    // `link`: the device of the PC link, whose requests and idle looks are left out.
    void setLink(const QByteArray &link)
    {
        link_ = link;
    }
    void add(const Operation &operation);

    // What was done since the last call: the GUI thread first, then each other thread under a line
    // of its own, then what stayed open.
    QStringList take();
    // How often the GUI thread has waited in vain for an event since it last read a byte from the
    // PC link, or did anything to the panel.
    int idleTurns() const;
    void countIdleTurnsAnew()
    {
        idleTurns_ = 0;
    }
    bool heard() const // a byte came over the PC link since take()
    {
        return heard_;
    }
    // Whether a line with `text` is there, since take().
    bool tells(const QString &text) const;

private:
    struct Step {
        Operation::Kind kind;
        QString text; // without its place
        qint64 at;
        QByteArray bytes;
    };
    struct Effect {
        int thread;
        QString text; // of what is no file; else the file's opening
        QByteArray file; // path of a file's steps
        int fd = -1, child = 0; // of a file's or port's steps; of a program
        bool direct = false, awaited = false; // the child became the program; was waited for
        QVector<Step> steps;
        bool over = false; // nothing joins it any more
        bool silence = false; // of a port: a look that found nothing ends it
    };

    Effect &put(const Operation &operation, const QString &text);
    void tell(const Operation &operation, const QString &text); // in a line that nothing joins
    Effect *last(int thread);
    Effect &stepsOf(const Operation &operation);
    void opened(const Operation &operation);
    void closed(const Operation &operation);
    void fileDid(const Operation &operation, const QString &text);
    void portDid(const Operation &operation);
    void received(const Operation &operation);
    void written(const Operation &operation);
    void controlled(const Operation &operation);
    Effect &childOf(const Operation &operation, int child);
    void ran(const Operation &operation);
    void started(const Operation &operation);
    void reaped(const Operation &operation);
    void resized(const Operation &operation);
    void renamed(const Operation &operation);
    void waited(const Operation &operation);
    void ended(const Operation &operation);
    void paused(const Operation &operation);
    void synced(const Operation &operation);
    QStringList linesOf(int thread) const;
    QString lineOf(const Effect &effect) const;
    QString recordText(const Effect &effect) const;

    QByteArray link_;
    int agent_ = 0;
    QVector<Effect> effects_;
    QHash<int, QByteArray> open_; // the panel's files and ports, by descriptor
    QVector<int> openedNow_;
    QSet<int> silent_; // ports whose last look found nothing
    QHash<int, QString> tried_; // by process: the program that it could not become
    qint64 interrupted_ = 0; // the pause that a signal cut short
    bool heard_ = false;
    int idleTurns_ = 0;
};

// Text or bytes as the journal shows them: texts in quotes, eight and more equal bytes as "62 x
// 00".
QString quotedBytes(const QByteArray &bytes);
