// The order in which the tracer tells of several processes at once is not that of their calls.
#include "effects/journal.h"

#include <QtTest>

class TestJournal : public QObject {
    Q_OBJECT

private slots:
    // The shell starts its command before the agent's own call has come back.
    void commandBeforeItsMaker()
    {
        const char trace[] = R"(2 execve("/agent", ["/agent"], 0x7f /* 16 vars */) = 0
2 clone3({flags=CLONE_VM|CLONE_VFORK, exit_signal=SIGCHLD}, 88 <unfinished ...>
3 execve("/bin/sh", ["sh", "-c", "archive -w"], 0x7f /* 16 vars */) = 0
3 vfork( <unfinished ...>
4 execve("/usr/local/ict/archive", ["/usr/local/ict/archive", "-w"], 0x7f /* 16 vars */) = 0
3 <... vfork resumed>) = 4
2 <... clone3 resumed>) = 3
2 wait4(3,  <unfinished ...>
4 exit_group(0) = ?
3 wait4(-1, [{WIFEXITED(s) && WEXITSTATUS(s) == 0}], 0, NULL) = 4
3 exit_group(0) = ?
2 <... wait4 resumed>[{WIFEXITED(s) && WEXITSTATUS(s) == 0}], 0, NULL) = 3
)";
        TraceReader reader;
        Journal journal;
        for (const Operation &operation : reader.read(trace))
            journal.add(operation);
        QCOMPARE(journal.take(), QStringList("shell archive -w"));
    }
};

QTEST_GUILESS_MAIN(TestJournal)
#include "tst_journal.moc"
