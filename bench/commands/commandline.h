#pragma once

#include <QCommandLineParser>
#include <QVector>

// The options and words that a command was given, after `args` was read by what it takes. --help is
// answered; everything that is wrong throws BenchError: what nobody knows, a value left out.
class CommandLine : public QCommandLineParser {
public:
    struct Word {
        QString name, help, syntax = {};
    };
    CommandLine(const QStringList &args, const QString &help,
                const QList<QCommandLineOption> &options, const QList<Word> &words = {});

    // The value of an option that takes a number, or several with commas.
    int number(const QString &option, int least, int most) const;
    QVector<int> numbers(const QString &option, int least, int most) const;
};
