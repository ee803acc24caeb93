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
        return waitFor([&] { return panel.port(link)->isOpenOnPanel(); }, 20000);
    }
    PcPort &link()
    {
        return *link_;
    }
    // One request, once; what comes until `size` bytes are there or `ms` are over.
    QByteArray ask(const QByteArray &request, int size = 11, int ms = 2000)
    {
        link_->write(request);
        return link_->read(size, ms);
    }
    // Whether nothing comes for longer than the panel takes to look at its link twice.
    bool isSilent(int ms = 300)
    {
        return link_->read(1, ms).isEmpty();
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
};
