#pragma once

#include "panel/urgency.h"

#include <QByteArray>
#include <QList>
#include <atomic>
#include <chrono>
#include <fcntl.h>
#include <functional>
#include <poll.h>
#include <pty.h>
#include <thread>
#include <unistd.h>

// The far end of a pty that answers each request as it is told: late, in pieces, with noise, or not
// at all.
class MisbehavingPeer {
public:
    struct Piece {
        int delayMs; // -1: the adapter is pulled out
        QByteArray bytes;
    };
    // `answer` is called in the peer's thread with the number of the request (from 0) and its
    // bytes.
    using Answer = std::function<QList<Piece>(int number, const QByteArray &request)>;

    explicit MisbehavingPeer(Answer answer)
        : answer_(std::move(answer))
    {
        char name[64];
        openpty(&master_, &slave_, name, nullptr, nullptr);
        fcntl(master_, F_SETFD, FD_CLOEXEC); // a program under test must not hold it open
        fcntl(master_, F_SETFL, O_NONBLOCK); // nobody may read any more
        termios raw;
        tcgetattr(slave_, &raw);
        cfmakeraw(&raw);
        tcsetattr(slave_, TCSANOW, &raw);
        path = name;
        thread_ = std::thread([this] { serve(); });
    }
    ~MisbehavingPeer()
    {
        stop_ = true;
        thread_.join();
        close(master_);
        close(slave_);
    }
    QByteArray path;
    std::atomic<int> requests{0};

private:
    void serve()
    {
        runBeforeAllElse(); // the station waits for tenths of a second only
        QByteArray received; // of a request that is not complete
        while (!stop_ && master_ >= 0) {
            pollfd fd{master_, POLLIN, 0};
            char bytes[256];
            if (poll(&fd, 1, 20) < 1)
                continue;
            const ssize_t n = read(master_, bytes, sizeof bytes);
            received.append(bytes, int(qMax<ssize_t>(n, 0)));
            for (int end; (end = received.indexOf('\n')) >= 0; received.remove(0, end + 1)) {
                for (const Piece &piece : answer_(requests++, received.left(end + 1)))
                    send(piece);
            }
        }
    }
    void send(const Piece &piece)
    {
        if (piece.delayMs >= 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(piece.delayMs));
        if (piece.delayMs < 0 || write(master_, piece.bytes, size_t(piece.bytes.size())) < 0) {
            close(master_);
            master_ = -1;
        }
    }

    Answer answer_;
    int master_ = -1, slave_ = -1;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};
