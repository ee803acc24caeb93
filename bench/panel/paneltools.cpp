// The part of VirtualPanel that watches the image's programs and makes them fail.
#include "panel/panelimage.h"
#include "panel/virtualpanel.h"

#include <sys/stat.h>

QVector<ToolCall> VirtualPanel::calls() const
{
    QVector<ToolCall> calls;
    for (const QByteArray &line : readFile("/run/bench/calls").split('\n')) {
        const QStringList fields = QString::fromUtf8(line).split('\t');
        if (fields.size() >= 2)
            calls.append({qint64(fields[0].toDouble() * 1e9), fields[1], fields.mid(2)});
    }
    return calls;
}

void VirtualPanel::toolPrints(const QString &tool, const QByteArray &text)
{
    restoreTool(tool);
    // Complete before it has its name: a call meets all of it or nothing.
    const QString file = "/run/bench/fault/" + tool;
    writeFile(file + ".new", text);
    QFile::rename(hostPath(file + ".new"), hostPath(file));
}

void VirtualPanel::toolHangs(const QString &tool)
{
    restoreTool(tool);
    mkfifo(QFile::encodeName(hostPath("/run/bench/fault/" + tool)), 0600);
}

void VirtualPanel::toolMissing(const QString &tool)
{
    restoreTool(tool);
    QFile::remove(hostPath(toolPath(tool)));
}

void VirtualPanel::restoreTool(const QString &tool)
{
    if (board_ && toolPath(tool).startsWith("/usr/local/bin"))
        throw BenchError("On the ARM machine the programs of /usr/local/bin cannot be replaced");
    if (toolPath(tool).isEmpty())
        throw BenchError(QString("The panel's image has no program %1").arg(tool));
    QFile::remove(hostPath("/run/bench/fault/" + tool));
    QFile::remove(hostPath(toolPath(tool)));
    QFile::link("/run/bench/toolbox", hostPath(toolPath(tool)));
}
