#include "panel/folders.h"

#include <QFileInfo>

namespace {

QString installedOr(const QString &installed, const QString &built)
{
    const QString program = QFileInfo("/proc/self/exe").canonicalPath();
    const QString folder = QFileInfo(program + installed).canonicalFilePath();
    return folder.isEmpty() ? built : folder;
}

} // namespace

QString dataFolder()
{
    return installedOr("/../share/ict-bench", BENCH_SOURCE_DIR);
}

QString programFolder()
{
    return installedOr("/../lib/ict-bench", BENCH_BUILD_DIR);
}
