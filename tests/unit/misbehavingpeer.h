#pragma once

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
        : m_answer(std::move(answer))
    {
        char name[64];
        openpty(&m_master, &m_slave, name, nullptr, nullptr);
        fcntl(m_master, F_SETFD, FD_CLOEXEC); // a program under test must not hold it open
        fcntl(m_master, F_SETFL, O_NONBLOCK); // nobody may read any more
        termios raw;
        tcgetattr(m_slave, &raw);
        cfmakeraw(&raw);
        tcsetattr(m_slave, TCSANOW, &raw);
        path = name;
        m_thread = std::thread([this] { serve(); });
    }
    ~MisbehavingPeer()
    {
        m_stop = true;
        m_thread.join();
        close(m_master);
        close(m_slave);
    }
    QByteArray path;
    std::atomic<int> requests{0};

private:
    void serve()
    {
        QByteArray received; // of a request that is not complete
        while (!m_stop) {
            pollfd fd{m_master, POLLIN, 0};
            char bytes[256];
            if (poll(&fd, 1, 20) < 1)
                continue;
            const ssize_t n = read(m_master, bytes, sizeof bytes);
            received.append(bytes, int(qMax<ssize_t>(n, 0)));
            for (int end; (end = received.indexOf('\n')) >= 0; received.remove(0, end + 1))
                for (const Piece &piece : m_answer(requests++, received.left(end + 1))) {
                    if (piece.delayMs < 0) {
                        close(m_master);
                        m_master = -1;
                        return;
                    }
                    std::this_thread::sleep_for(std::chrono::milliseconds(piece.delayMs));
                    if (write(m_master, piece.bytes, size_t(piece.bytes.size())) < 0)
                        return;
                }
        }
    }
    Answer m_answer;
    int m_master = -1, m_slave = -1;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};
