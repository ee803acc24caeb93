#include "commands/commandline.h"

#include "panel/bencherror.h"

CommandLine::CommandLine(const QStringList &args, const QString &help,
                         const QList<QCommandLineOption> &options, const QList<Word> &words)
{
    setApplicationDescription(help);
    addHelpOption();
    addOptions(options);
    for (const Word &word : words)
        addPositionalArgument(word.name, word.help, word.syntax);
    if (!parse(args))
        throw BenchError(errorText() + " See --help");
    process(args); // --help and --help-all
    if (words.isEmpty() && !positionalArguments().isEmpty())
        throw BenchError("\"" + positionalArguments()[0] + "\" is no option. See --help");
}

static int toNumber(const QString &text, const QString &option, int least, int most)
{
    bool valid = false;
    const int value = text.toInt(&valid);
    if (!valid || value < least || value > most)
        throw BenchError(QString("--%1 takes numbers from %2 to %3, not \"%4\"")
                             .arg(option)
                             .arg(least)
                             .arg(most)
                             .arg(text));
    return value;
}

int CommandLine::number(const QString &option, int least, int most) const
{
    return toNumber(value(option), option, least, most);
}

QVector<int> CommandLine::numbers(const QString &option, int least, int most) const
{
    QVector<int> all;
    for (const QString &text : value(option).split(','))
        all << toNumber(text, option, least, most);
    return all;
}
