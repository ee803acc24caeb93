#include "commands/boardrig.h"

#include "fixture/virtualstand.h"

namespace {

constexpr int readyMs = 600000;

PanelOptions machineWith(IctDisk disk)
{
    useBoard();
    PanelOptions options;
    options.ictDisk = disk;
    return options;
}

} // namespace

BoardRig::BoardRig(IctDisk disk)
    : panel(machineWith(disk))
    , fixture(panel)
{
    panel.factoryNew();
}

void BoardRig::powerOn()
{
    panel.powerOn();
    // Factory-new the agent makes the file, in its boot.
    const auto atLevel = [this] {
        level = levelByName(run("cat /usr/local/ict/HMI_TEST_LEVEL.txt").trimmed());
        return level >= 0;
    };
    if (!waitFor(atLevel, readyMs))
        throw BenchError("The panel has no legal level: " + panel.output());
    if (!waitFor([&] { return panel.isReady(linkPort(levelName(level))); }, readyMs))
        throw BenchError("The agent does not open its port: " + panel.output());
    link.open(panel.linkPath(linkPort(levelName(level))), level);
}

QByteArray BoardRig::ask(const char *code, const QString &argument, int ms)
{
    Link::Request request;
    request.bytes = requestOf(code, argument, 0, "KLV-100");
    request.timeoutMs = ms;
    request.framed = findCommand(code) && findCommand(code)->framed;
    return decode(link.exchange(request).bytes).payload;
}
