#include "effects/wording.h"
#include "effects/journal.h"
#include "station/codec.h"

#include <QRegularExpression>
#include <QtEndian>
#include <utility>

#include <linux/serial.h>

QString openMode(const QByteArray &flags, bool port)
{
    static const QPair<const char *, const char *> words[] = {
        {"O_RDONLY", "read-only"}, {"O_WRONLY", "write-only"}, {"O_RDWR", "read-write"},
        {"O_CREAT", "create"},     {"O_EXCL", "new"},          {"O_TRUNC", "truncate"},
        {"O_APPEND", "append"},    {"O_NOCTTY", "noctty"},     {"O_NONBLOCK", "nonblock"},
        {"O_DSYNC", "dsync"},      {"O_SYNC", "synchronous"}};
    const QByteArrayList set = flags.split('|');
    QStringList mode;
    for (const auto &word : words) {
        if (set.contains(word.first))
            mode << word.second;
    }
    if (port && set.contains("O_CLOEXEC"))
        mode << "cloexec"; // which is every file's, too
    return mode.join(' ');
}

QString shortName(const QByteArray &path)
{
    const QString folder = "/usr/local/ict/";
    return path.startsWith(folder.toLatin1()) ? path.mid(folder.size()) : path;
}

QString changedName(const Operation &operation)
{
    switch (operation.kind) {
    case Operation::Rename:
        return "rename " + shortName(operation.path) + " to " + shortName(operation.target);
    case Operation::Remove:
        return "remove " + shortName(operation.path)
            + (operation.ok() ? "" : ": " + operation.error);
    case Operation::MakeFolder:
        return "folder " + shortName(operation.path);
    default:
        return "link " + shortName(operation.path) + " to " + shortName(operation.target);
    }
}

namespace {

// The words of a "c_iflag=A|B" that are not in `known`, in lower case.
QStringList flagWords(const QByteArray &termios, const char *field, const QStringList &known)
{
    const QRegularExpression pattern(QString(field) + "=([A-Za-z0-9_|]*)");
    QStringList words = pattern.match(QString(termios)).captured(1).toLower().split('|');
    words.removeAll("");
    for (const QString &word : known)
        words.removeAll(word);
    return words;
}

int controlCharacter(const QByteArray &termios, const char *name)
{
    const QRegularExpression pattern(QString("\\[%1\\]=(?:\\\\x)?(0x)?([0-9a-f]+)").arg(name));
    return pattern.match(QString(termios)).captured(2).toInt(nullptr, 16);
}

QString lineSettings(const QByteArray &termios)
{
    QStringList control = flagWords(termios, "c_cflag", {});
    const auto has = [&](const char *flag) { return control.removeAll(flag) > 0; };
    QString speed = "0", bits = "5";
    for (const QString &word : QStringList(control)) {
        if (QRegularExpression("^b\\d+$").match(word).hasMatch() && has(word.toLatin1()))
            speed = word.mid(1);
        else if (QRegularExpression("^cs\\d$").match(word).hasMatch() && has(word.toLatin1()))
            bits = word.mid(2);
    }
    const bool parity = has("parenb"), odd = has("parodd"), stick = has("cmspar");
    const QString kind = !parity ? "N" : stick ? (odd ? "M" : "S") : odd ? "O" : "E";
    QStringList words{speed, bits + kind + (has("cstopb") ? "2" : "1")};
    words << (has("crtscts") ? "rtscts" : "no-flow-control") << control;
    words << flagWords(termios, "c_iflag", {});
    // The terminal's own delays, which are the absence of any.
    words << flagWords(termios, "c_oflag", {"nl0", "cr0", "tab0", "bs0", "vt0", "ff0"});
    words << flagWords(termios, "c_lflag", {});
    words << QString("min %1 time %2")
                 .arg(controlCharacter(termios, "VMIN"))
                 .arg(controlCharacter(termios, "VTIME"));
    return words.join(' ');
}

} // namespace

QString controlText(const Operation &port)
{
    const QByteArray request = port.args.value(1), argument = port.args.value(2);
    if (request.contains("TCSETS"))
        return "line " + port.path + ' ' + lineSettings(argument)
            + (request.contains("TCSETSW")       ? " drained"
                   : request.contains("TCSETSF") ? " flushed"
                                                 : "");
    if (request == "TCFLSH")
        return "flush " + port.path
            + (argument == "TCIFLUSH"       ? " input"
                   : argument == "TCOFLUSH" ? " output"
                                            : " both");
    if (request == "TIOCSRS485") {
        serial_rs485 rs485 = {};
        memcpy(&rs485, port.bytes.constData(), qMin(size_t(port.bytes.size()), sizeof rs485));
        return QString("rs485 %1 flags %2 delays %3 %4")
            .arg(QString(port.path))
            .arg(rs485.flags)
            .arg(rs485.delay_rts_before_send)
            .arg(rs485.delay_rts_after_send);
    }
    if (request == "TIOCSSERIAL") {
        serial_struct info = {};
        memcpy(&info, port.bytes.constData(), qMin(size_t(port.bytes.size()), sizeof info));
        return QString("serial %1 flags %2 divisor %3")
            .arg(QString(port.path))
            .arg(info.flags, 0, 16)
            .arg(info.custom_divisor);
    }
    return {};
}

QString eventText(const QByteArray &bytes)
{
    QStringList events;
    for (int at = 0; at < bytes.size(); at += 16) {
        const QByteArray event = bytes.mid(at, 16);
        if (event.size() != 16 || !event.startsWith(QByteArray(8, '\0')))
            return "event? " + quotedBytes(bytes);
        events << QString("event %1 %2 %3")
                      .arg(qFromLittleEndian<quint16>(event.constData() + 8))
                      .arg(qFromLittleEndian<quint16>(event.constData() + 10))
                      .arg(qFromLittleEndian<qint32>(event.constData() + 12));
    }
    return events.join(", ");
}

// A program of a bin folder goes by its name alone, unless it is a script of the panel's image.
QString commandText(const QList<QByteArray> &words)
{
    if (words.value(0) == "sh" && words.value(1) == "-c")
        return "shell " + printable(words.last());
    QStringList texts;
    for (const QByteArray &word : words) {
        const QString text = printable(word);
        texts << (word.isEmpty() || word.contains(' ') ? '"' + text + '"' : text);
    }
    static const QRegularExpression bin("^(/usr(/local)?)?/s?bin/(?=[^./]+$)");
    texts[0].remove(bin);
    return texts.join(' ');
}

QString quotedBytes(const QByteArray &bytes)
{
    QStringList parts;
    QByteArray text;
    const auto endText = [&] {
        if (!text.isEmpty())
            parts << '"' + printable(std::exchange(text, {})) + '"';
    };
    for (int i = 0, run; i < bytes.size(); i += run) {
        for (run = 1; i + run < bytes.size() && bytes[i + run] == bytes[i];)
            ++run;
        if (run < 8 || uchar(bytes[i]) >= 32) {
            text += bytes.mid(i, run);
            if (!parts.isEmpty() && text == "\r\n") // a line padded with zeros ends here
                endText();
            continue;
        }
        endText();
        parts << QString("%1 x %2").arg(run).arg(uchar(bytes[i]), 2, 16, QLatin1Char('0'));
    }
    endText();
    static const QRegularExpression date("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d");
    return parts.isEmpty() ? "\"\"" : parts.join(' ').replace(date, "<date>");
}

QStringList folded(const QStringList &lines)
{
    static const QString file = "file FactoryTestLog.txt";
    static const QRegularExpression record(
        '^' + file + ": write \"<date>\\\\n(.*)\" (\\d+) x 00, sync, close$");
    constexpr int recordSize = 100, dateSize = 20; // with its line end
    QStringList all;
    for (const QString &line : lines) {
        const QRegularExpressionMatch match = record.match(line);
        const int last = all.size() - 1;
        if (match.hasMatch() && last > 0 && all[last] == "run date \"+%Y-%m-%d %H:%M:%S\""
            && all[last - 1] == file + " read-write create append"
            && dateSize + unprintable(match.captured(1).toLatin1()).size()
                    + match.captured(2).toInt()
                == recordSize) {
            all.removeLast();
            all.last() = "log \"" + match.captured(1) + '"';
        } else {
            all << line;
        }
    }
    return all;
}
