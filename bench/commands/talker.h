#pragma once

#include "commands/codec.h"
#include "panel/virtualpanel.h"

#include <QTimer>

#include <atomic>
#include <cmath>

// Asks its panel, at once or each as soon as the one before was answered, from the thread of the
// panel's ports, so that each look of the agent at its link finds one.
class Talker : public QObject {
public:
    // What is not answered within `ms` counts as unanswered.
    Talker(VirtualPanel &panel, const QVector<QByteArray> &requests, int ms)
        : link_(panel.port(panel.link()))
        , requests_(requests)
        , answerMs_(ms)
        , timer_(this)
    {
        timer_.setSingleShot(true);
        connect(&timer_, &QTimer::timeout, this, &Talker::silent);
        connect(link_, &PtyPort::intoPanel, this,
                [this](const QByteArray &, qint64 ns) { sent_ = ns; });
        connect(link_, &PtyPort::fromPanel, this, &Talker::heard);
        moveToThread(panel.ioThread());
    }
    ~Talker() override
    {
        inThread([this] {
            link_->disconnect(this);
            timer_.stop();
            moveToThread(qApp->thread());
        });
    }
    void ask(int count)
    {
        inThread([&] {
            latencies_.clear();
            left = count;
            next();
        });
    }
    // Of what was asked last: ms from the last byte in to the first byte out; infinity for none.
    QVector<double> latencies()
    {
        QVector<double> result;
        inThread([&] { result = latencies_; });
        return result;
    }
    std::atomic<int> left{0}, unanswered{0};

private:
    static constexpr int quietMs = 60; // then an answer without a line end is whole

    void inThread(const std::function<void()> &what)
    {
        QMetaObject::invokeMethod(link_, what, Qt::BlockingQueuedConnection);
    }
    void next()
    {
        if (left > 0) {
            bytes_.clear();
            timer_.start(answerMs_);
            asked_ = requests_[turn_++ % requests_.size()];
            link_->send(asked_);
        }
    }
    void heard(const QByteArray &bytes, qint64 ns)
    {
        if (bytes_.isEmpty() && left > 0)
            latencies_ << double(ns - sent_) / 1e6;
        bytes_ += bytes;
        if (isComplete(bytes_, false))
            over(isAnswer());
        else
            timer_.start(quietMs);
    }
    // An answer that has begun may still end.
    void silent()
    {
        if (bytes_.isEmpty() || isComplete(bytes_, true) || timer_.interval() == answerMs_)
            over(isAnswer());
        else
            timer_.start(answerMs_);
    }
    // Whole and to what was asked last, passed or failed: a frame begins as its request did, but
    // for the battery's.
    bool isAnswer() const
    {
        const Reply reply = decode(bytes_);
        const QByteArray code = asked_.right(8).left(4); // of a short request
        const bool same = reply.payload.left(1) == code.left(1) || code.startsWith("88");
        return reply.kind == Reply::Frame || reply.kind == Reply::Identity
            ? same
            : reply.kind != Reply::None && reply.kind != Reply::Damaged;
    }
    void over(bool answered)
    {
        timer_.stop();
        if (left > 0) {
            if (bytes_.isEmpty())
                latencies_ << INFINITY;
            unanswered += !answered;
            --left;
            next();
        }
    }

    PtyPort *link_;
    const QVector<QByteArray> requests_;
    const int answerMs_;
    QTimer timer_;
    QByteArray asked_, bytes_;
    QVector<double> latencies_;
    qint64 sent_ = 0;
    int turn_ = 0;
};
