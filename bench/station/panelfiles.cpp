#include "station/panelfiles.h"

#include "panel/wait.h"
#include "station/protocol.h"

#include <QDir>
#include <QRegularExpression>

int PanelFiles::level() const
{
    return qMax(0, levelByName(textOf(read("/usr/local/ict/HMI_TEST_LEVEL.txt")).trimmed()));
}

QByteArray PanelFiles::read(const QString &path) const
{
    QFile file(root_ + path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Zero bytes at the end of what was cut off belong to it: they fill it up.
static QString shown(const QByteArray &bytes, bool record)
{
    QString text;
    for (int at = 0, zeros = 0; at < bytes.size(); at += qMax(1, zeros)) {
        for (zeros = 0; at + zeros < bytes.size() && bytes[at + zeros] == '\0';) {
            ++zeros;
        }
        text += zeros == 0 ? printable(bytes.mid(at, 1))
            : record       ? QString("\\0")
                           : QString("\\0*%1").arg(zeros);
    }
    return text;
}

QStringList PanelFiles::linesOf(const Section &section) const
{
    if (section.path.contains('*')) {
        const QFileInfo pattern(root_ + section.path);
        return pattern.dir().entryList({pattern.fileName()}, QDir::Files, QDir::Name);
    }
    const QByteArray bytes = read(section.path);
    QStringList lines;
    for (int at = 0, size = 0; at < bytes.size(); at += size) {
        const int lineEnd = bytes.indexOf('\n', at);
        size = section.recordSize ? section.recordSize
            : lineEnd < 0         ? bytes.size() - at
                                  : lineEnd + 1 - at;
        lines << shown(bytes.mid(at, size), section.recordSize);
        if (section.recordSize && at + size > bytes.size()) {
            lines.last() += QString(" (%1 bytes only)").arg(bytes.size() - at);
        }
    }
    return lines;
}

// Whether a line is as expected; names that it is the first to use are added to `values`.
static bool fits(const QString &expected, const QString &line, Values *values)
{
    static const QRegularExpression name("\\$\\{(\\w+)\\}");
    const QString date("(?:%1-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d"
                       "|(?=[^\\\\\\d][^\\\\]*\\d\\d:\\d\\d:\\d\\d)[^\\\\]*\\b%1\\b[^\\\\]*)");
    const QHash<QString, QString> patterns = {
        {"any", ".*"}, {"old", date.arg(2015)}, {"now", date.arg(QDate::currentDate().year())}};
    QString pattern;
    QStringList fresh;
    int from = 0;
    for (auto all = name.globalMatch(expected); all.hasNext();) {
        const QRegularExpressionMatch match = all.next();
        const QString key = match.captured(1);
        pattern += QRegularExpression::escape(expected.mid(from, match.capturedStart() - from));
        pattern += values->contains(key) ? QRegularExpression::escape((*values)[key])
            : patterns.contains(key)     ? patterns[key]
                                         : QString("(?<%1>[-\\w]+)").arg(key);
        if (!values->contains(key) && !patterns.contains(key)) {
            fresh << key;
        }
        from = match.capturedEnd();
    }
    pattern += QRegularExpression::escape(expected.mid(from));
    const QRegularExpressionMatch match =
        QRegularExpression(QRegularExpression::anchoredPattern(pattern)).match(line);
    for (int i = 0; match.hasMatch() && i < fresh.size(); ++i) {
        values->insert(fresh[i], match.captured(fresh[i]));
    }
    return match.hasMatch();
}

QString PanelFiles::difference(const Section &section, QHash<QString, QStringList> *seen,
                               Values *values) const
{
    QStringList found = linesOf(section);
    const QStringList before = section.isNew ? seen->value(section.path) : QStringList();
    seen->insert(section.path, found);
    if (found.mid(0, before.size()) != before) {
        return section.path + " has changed where it was written before";
    }
    found = found.mid(before.size());
    for (int i = 0; i < qMax(found.size(), section.lines.size()); ++i) {
        if (i >= found.size() || i >= section.lines.size()
            || !fits(section.lines[i], found[i], values)) {
            return QString("%1, line %2: %3 instead of %4")
                .arg(section.path)
                .arg(before.size() + i + 1)
                .arg(found.value(i, "nothing"), section.lines.value(i, "nothing"));
        }
    }
    return {};
}

QStringList PanelFiles::differences(const QString &file, int patienceMs)
{
    QFile text(file);
    if (!text.open(QIODevice::ReadOnly)) {
        return {QString("%1 cannot be read: %2").arg(file, text.errorString())};
    }
    QVector<Section> sections;
    static const QRegularExpression head("^\\[(\\S+)( new)?(?: records (\\d+))?\\]$");
    for (const QString &line : QString(text.readAll()).split('\n', Qt::SkipEmptyParts)) {
        const QRegularExpressionMatch match = head.match(line);
        if (match.hasMatch()) {
            sections << Section{
                match.captured(1), match.captured(3).toInt(), !match.captured(2).isEmpty(), {}};
        } else if (!line.startsWith('#') && !sections.isEmpty()) {
            sections.last().lines << line;
        }
    }
    QStringList wrong;
    QHash<QString, QStringList> seen;
    Values met;
    const auto right = [&] {
        wrong.clear();
        seen = seen_;
        met = values;
        for (const Section &section : sections) {
            const QString difference = this->difference(section, &seen, &met);
            wrong += difference.isEmpty() ? QStringList() : QStringList(difference);
        }
        return wrong.isEmpty();
    };
    waitFor(right, patienceMs);
    seen_ = seen;
    values = met;
    return sections.isEmpty() ? QStringList(file + " names no file of the panel") : wrong;
}

QStringList PanelFiles::itemFaults(int level, const LevelResult &run, int patienceMs) const
{
    QMap<int, char> wanted;
    for (const StepResult &result : run.steps) {
        const Command *command = findCommand(result.step.code);
        const bool failed = result.reply.kind == Reply::Frame && result.reply.payload != "0295"
            && result.reply.payload != (command ? command->pass() : QByteArray());
        for (int item : result.step.items) {
            // A failure of several items may be any one's; a voltage has a limit of its own.
            if (result.reply.kind == Reply::None || (failed && result.step.items.size() > 1)
                || result.reply.kind == Reply::Battery) {
                wanted.remove(item);
            } else {
                wanted[item] = failed ? 'F' : '1';
            }
        }
    }
    QStringList faults;
    waitFor(
        [&] {
            faults.clear();
            const QList<QByteArray> lines =
                read(QString("/usr/local/ict/HMI_%1_TEST_Flag.txt").arg(levelName(level)))
                    .split('\n');
            for (auto item = wanted.begin(); item != wanted.end(); ++item) {
                const QString line = shown(lines.value(item.key() - 1), true);
                if (!line.contains(QString(": %1\\0").arg(item.value()))) {
                    faults << QString("item result on the panel: %1 instead of %2")
                                  .arg(line, QString(item.value()));
                }
            }
            return faults.isEmpty();
        },
        patienceMs);
    return faults;
}
