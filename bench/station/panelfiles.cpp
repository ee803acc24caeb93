#include "station/panelfiles.h"

#include "panel/files.h"
#include "panel/wait.h"
#include "station/codec.h"
#include "station/protocol.h"

#include <QDir>
#include <QJsonArray>
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
    static const QRegularExpression zeros("(?:\\\\x00)+");
    QString text = printable(bytes);
    int at = 0;
    for (QRegularExpressionMatch run; (run = zeros.match(text, at)).hasMatch();) {
        const int count = run.capturedLength() / 4;
        const QString put = record ? QString("\\0") : QString("\\0*%1").arg(count);
        text.replace(run.capturedStart(), run.capturedLength(), put);
        at = run.capturedStart() + put.size();
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
        const int lineEnd = bytes.indexOf('\n', at),
                  line = lineEnd < 0 ? bytes.size() : lineEnd + 1;
        size = section.recordSize ? section.recordSize : line - at;
        lines << shown(bytes.mid(at, size), section.recordSize);
        if (section.recordSize && at + size > bytes.size())
            lines.last() += QString(" (%1 bytes only)").arg(bytes.size() - at);
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
        if (values->contains(key)) {
            pattern += QRegularExpression::escape((*values)[key]);
        } else if (patterns.contains(key)) {
            pattern += patterns[key];
        } else {
            pattern += QString("(?<%1>[-\\w]+)").arg(key);
            fresh << key;
        }
        from = match.capturedEnd();
    }
    pattern += QRegularExpression::escape(expected.mid(from));
    const QRegularExpressionMatch match =
        QRegularExpression(QRegularExpression::anchoredPattern(pattern)).match(line);
    for (int i = 0; match.hasMatch() && i < fresh.size(); ++i)
        values->insert(fresh[i], match.captured(fresh[i]));
    return match.hasMatch();
}

QString PanelFiles::difference(const Section &section, QHash<QString, QStringList> *seen,
                               Values *values) const
{
    QStringList found = linesOf(section);
    const QStringList before = section.isNew ? seen->value(section.path) : QStringList();
    seen->insert(section.path, found);
    if (found.mid(0, before.size()) != before)
        return section.path + " has changed where it was written before";
    found = found.mid(before.size());
    for (int i = 0; i < qMax(found.size(), section.lines.size()); ++i) {
        if (i >= found.size() || i >= section.lines.size()
            || !fits(section.lines[i], found[i], values))
            return QString("%1, line %2: %3 instead of %4")
                .arg(section.path)
                .arg(before.size() + i + 1)
                .arg(found.value(i, "nothing"), section.lines.value(i, "nothing"));
    }
    return {};
}

QVector<PanelFiles::Section> PanelFiles::sectionsOf(const QString &text)
{
    static const QRegularExpression head("^\\[(\\S+)( new)?(?: records (\\d+))?\\]$");
    QVector<Section> sections;
    for (const QString &line : text.split('\n', Qt::SkipEmptyParts)) {
        const QRegularExpressionMatch match = head.match(line);
        if (match.hasMatch()) {
            sections << Section{
                match.captured(1), match.captured(3).toInt(), !match.captured(2).isEmpty(), {}};
        } else if (!line.startsWith('#') && !sections.isEmpty()) {
            sections.last().lines << line;
        }
    }
    return sections;
}

QStringList PanelFiles::differences(const QString &file, int patienceMs)
{
    if (!QFile::exists(file))
        return {file + " is missing"};
    const QVector<Section> sections = sectionsOf(readFile(file));
    if (sections.isEmpty())
        return {file + " names no file of the panel"};
    QStringList wrong;
    QHash<QString, QStringList> seen;
    Values met;
    const auto right = [&] {
        wrong.clear();
        seen = seen_;
        met = values;
        for (const Section &section : sections)
            wrong << difference(section, &seen, &met);
        wrong.removeAll({});
        return wrong.isEmpty();
    };
    waitFor(right, patienceMs);
    seen_ = seen;
    values = met;
    return wrong;
}

// '1' or 'F' by the number of the item; those left out may be either.
static QMap<int, QChar> resultsOf(const QJsonArray &steps, int level)
{
    QMap<int, QChar> results;
    for (const QJsonValue &step : steps) {
        const Reply reply = decode(unprintable(step["reply"].toString().toLatin1()));
        const bool failed = isFailure(reply, step["code"].toString().toLatin1(), level);
        const QJsonArray items = step["items"].toArray();
        for (const QJsonValue &item : items) {
            // A failure of several items may be any one's; a voltage has a limit of its own.
            if (reply.kind == Reply::None || reply.kind == Reply::Battery
                || (failed && items.size() > 1))
                results.remove(item.toInt());
            else
                results[item.toInt()] = failed ? 'F' : '1';
        }
    }
    return results;
}

QStringList PanelFiles::itemFaults(int level, const QJsonArray &steps, int patienceMs) const
{
    const QMap<int, QChar> wanted = resultsOf(steps, level);
    const QString flags = QString("/usr/local/ict/HMI_%1_TEST_Flag.txt").arg(levelName(level));
    QStringList faults;
    const auto right = [&] {
        faults.clear();
        const QList<QByteArray> lines = read(flags).split('\n');
        for (auto item = wanted.begin(); item != wanted.end(); ++item) {
            const QString line = shown(lines.value(item.key() - 1), true);
            if (!line.contains(QString(": %1\\0").arg(item.value())))
                faults << QString("item result on the panel: %1 instead of %2")
                              .arg(line, QString(item.value()));
        }
        return faults.isEmpty();
    };
    waitFor(right, patienceMs);
    return faults;
}
