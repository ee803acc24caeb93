#pragma once

#include <QStringList>

struct PanelOptions;

// The bubblewrap command line that runs `options.agent` on the panel whose "/" is `root`.
// Throws BenchError, with the remedy, when a part is missing on this machine.
QStringList sandboxArguments(const PanelOptions &options, const QString &root,
                             const QStringList &agentArgs);
// What to do about a sandbox that did not start, from what it printed.
QString sandboxRemedy(const QByteArray &errorOutput);
