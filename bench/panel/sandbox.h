#pragma once

#include "panel/boundprocess.h"
#include "panel/machine.h"
#include "panel/virtualpanel.h"

#include <QMap>

// The agent and all that it starts, in a bubblewrap sandbox whose "/" is `folder`/root.
class Sandbox : public Machine {
    Q_OBJECT

public:
    Sandbox(const PanelOptions &options, const QString &folder);

    // Throws BenchError, with the remedy, when a part is missing on this machine.
    void start(const QStringList &agentArgs) override;
    void stop() override;
    bool isRunning() override;
    int waitForEnd(int ms) override;
    qint64 agentPid() const override;
    QByteArray printed(const QString &file) const override;

private:
    void awaitBoot();

    const PanelOptions options_;
    const QString folder_;
    BoundProcess process_;
    int status_ = -1;
    QMap<QString, qint64> begin_; // where this start's part of the logs begins
};
