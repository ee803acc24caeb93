#pragma once

#include "fixture/fixture.h"
#include "panel/panelharness.h"

#include <memory>

// A panel in its fixture with the agent running, and the PC end of its link.
class AgentPanel {
public:
    explicit AgentPanel(const PanelOptions &options = {})
        : panel(options)
        , fixture(panel)
    {
    }
    VirtualPanel panel;
    Fixture fixture;

    static QString ict(const QString &file)
    {
        return "/usr/local/ict/" + file;
    }
    // What the level file says: "ICT", "T1", "BI", "T2"; boots with it. False when the panel does
    // not open its PC link.
    bool boot(const QByteArray &level)
    {
        panel.writeFile(ict("HMI_TEST_LEVEL.txt"), level.leftJustified(3, ' ') + '\n');
        return powerCycle(level == "BI" ? Port::ttyO3 : Port::ttyO1);
    }
    bool powerCycle(Port link = Port::ttyO1, const QStringList &args = {})
    {
        link_.reset();
        panel.powerCycle(args);
        link_ = std::make_unique<PcPort>(panel, link);
        device_ = link;
        // Once open it is emptied: wait for the agent's first look at it.
        return waitFor([&] { return panel.port(link)->isOpenOnPanel(); }, DeadlineMs)
            && settle(panel, link, 3);
    }
    PcPort &link()
    {
        return *link_;
    }
    // One request, once; what comes until `size` bytes are there.
    QByteArray ask(const QByteArray &request, int size = 11)
    {
        return link_->ask(request, size);
    }
    // All that `request` brings: what comes until `probe`, which the panel echoes, is answered
    // behind it.
    QByteArray all(const QByteArray &request, const QByteArray &probe = requestFrame("8000"))
    {
        sendAndSettle(request);
        QByteArray bytes = link_->read(1000, 1); // which may end as the probe's answer does
        link_->write(probe);
        QByteArray byte;
        do {
            byte = link_->read(1);
            bytes += byte;
        } while (!byte.isEmpty() && !bytes.endsWith(probe));
        return byte.isEmpty() ? bytes + " and no more" : bytes.chopped(probe.size());
    }
    // Whether a panel that serves nothing to hear behind it leaves a request unanswered.
    bool ignores(const QByteArray &request)
    {
        sendAndSettle(request);
        return link_->read(1, 1).isEmpty();
    }
    // Sends, and waits until the agent has had its time for that and for finding the line quiet
    // again: each tick goes to sleep, with eleven bytes at most.
    void sendAndSettle(const QByteArray &bytes)
    {
        link_->write(bytes);
        if (!settle(panel, device_, 12 + bytes.size() / 8))
            qWarning("the agent does not look at its link");
    }
    // The result characters of a level's items, one each: '0', '1' or 'F'.
    QByteArray results(const QString &level) const
    {
        const QByteArray flags = panel.readFile(ict("HMI_" + level + "_TEST_Flag.txt"));
        QByteArray all;
        for (int at = 0; at + 64 <= flags.size(); at += 64) {
            const QByteArray line = flags.mid(at, qstrnlen(flags.constData() + at, 62));
            all += line.isEmpty() ? '?' : line.back();
        }
        return all;
    }

private:
    std::unique_ptr<PcPort> link_;
    Port device_ = Port::ttyO1;
};
