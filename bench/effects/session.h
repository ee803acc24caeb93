#pragma once

#include "effects/journal.h"

#include <functional>
#include <memory>

class Fixture;
class VirtualPanel;

// One request, or another occasion, and what it must do to a panel; see tests/effects/README.md.
struct EffectSection {
    QString title;
    QStringList conditions, effects;
    int line = 0; // of the title in its file
    QStringList given(const QString &verb) const; // what follows it, of each such condition
};

// Throws BenchError, with file and line, for what is no such file.
QVector<EffectSection> readEffects(const QString &file);

// What `diff` says of two lists of lines; empty when they are alike.
QString effectDifference(const QStringList &expected, const QStringList &seen);

// A panel whose agent is traced. Throws BenchError where the machine cannot.
class EffectSession {
public:
    EffectSession();
    ~EffectSession();

    // Does what the title says under the conditions, waits until the agent is idle again or until
    // the condition says; what it did.
    QStringList run(const EffectSection &section);

    VirtualPanel &panel()
    {
        return *panel_;
    }
    std::function<void(const Operation &)> watch; // is told each of the agent's calls, too

private:
    void readTrace();
    void prepare(const QString &condition);
    void perform(const EffectSection &section);
    void act(const QString &action);
    void boot(const EffectSection &section);
    void passAll(const QString &level);
    void ask(const QString &request);
    void settle(const QString &until, bool request);

    std::unique_ptr<VirtualPanel> panel_;
    std::unique_ptr<Fixture> fixture_;
    std::unique_ptr<TraceReader> reader_;
    std::unique_ptr<Journal> journal_;
    qint64 read_ = 0; // bytes of the trace
    QStringList undo_; // conditions that end with their section
};
