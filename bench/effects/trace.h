#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QStringList>
#include <QVector>

#include <memory>

// One call to the kernel by the agent or by a program that it started, with what it is about.
struct Operation {
    enum Kind {
        Other,
        Open,
        Close,
        Read,
        Write,
        Truncate, // `at`: the new length
        Rename, // `path` to `target`
        Remove, // a file or an empty folder
        MakeFolder,
        Link, // `target`: what the new name `path` leads to
        SyncAll, // everything
        SyncFile,
        Control, // ioctl and fcntl on a descriptor
        Start, // `result`: the new process
        Program, // a process becomes `words`
        Reap, // `result`: the ended child that was waited for
        Pause, // `at`: nanoseconds asked for
        Poll,
        Exit
    };
    Kind kind = Other;
    int thread = 0, process = 0; // as the panel numbers them; equal in a process's first thread
    // Program: the thread of the tracing's first program that started it, 0 if another did.
    // `branch`: that thread's child, which it is itself or which started it and stayed no program.
    int starter = 0, branch = 0;
    QByteArray name; // of the call
    QList<QByteArray> args; // as strace prints them, texts decoded
    qint64 result = 0; // -1: failed
    QByteArray error; // then its name, as "ENOENT"
    int fd = -1;
    // Absolute, as named when it was opened; pipes and the like as "pipe:[1]". A relative name
    // stays so where the call does not say the folder.
    QByteArray path, target;
    qint64 at = -1; // Read, Write: place in the file; -1: at its end, or in what has no places
    QByteArray bytes; // read or written; Control: the structure, where it is known
    QList<QByteArray> words; // Program: the arguments, its own name first
    bool ok() const
    {
        return result >= 0;
    }
};

// strace's arguments for a trace that TraceReader understands, written to `file`, and the program
// that follows them. Syncs are recorded and left out: they would flush this machine's disks.
QStringList traceCommand(const QString &file);

// Reads what strace writes, as it grows. Follows descriptors through threads, forks and copies.
class TraceReader {
public:
    // The calls that have ended in `text`, which goes on where the last one stopped.
    QVector<Operation> read(const QByteArray &text);

private:
    struct File {
        QByteArray path;
        bool append = false;
        qint64 position = 0;
    };
    struct Descriptor {
        std::shared_ptr<File> file;
        bool closeOnExec = false;
    };
    using Files = QHash<int, Descriptor>;
    struct Process {
        int number = 0, starter = 0, branch = 0;
        bool root = false, ran = false; // the first of all; whether it has become a program
        Files files;
    };

    void readLine(const QByteArray &line, QVector<Operation> *operations);
    bool parse(QByteArray line, Operation *operation);
    void resolve(Operation *operation);
    void resolveDescriptor(Operation *operation);
    void resolvePaths(Operation *operation);
    void copyDescriptor(const Operation &operation);
    void becomeProgram(Process *process, Operation *operation);
    void adopt(int thread, int parent, bool asThread);

    QByteArray rest_;
    QHash<int, QByteArray> unfinished_; // by thread
    QHash<int, QList<QByteArray>> early_; // lines of threads that are not known yet
    QHash<int, std::shared_ptr<Process>> threads_;
    QByteArray structure_; // what the next ioctl is given
};
