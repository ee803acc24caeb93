#include "station/panelfiles.h"

#include "station/protocol.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QRegularExpression>
#include <QThread>

static constexpr int recordSize = 100, itemSize = 64, maximumShown = 39;

PanelFiles::PanelFiles(QString folder, QVector<QStringList> items)
    : folder_(std::move(folder))
    , items_(std::move(items))
{
}

// A date as the comparison sees it: what `date` prints depends on the panel's locale, its year does
// not. The panel lives in 2015 from its first start at ICT until it is told the time.
QByteArray PanelFiles::date() const
{
    return "<date of " + QByteArray::number(year_) + ">\n";
}

int PanelFiles::level() const
{
    return qMax(0, levelByName(QString(level_).trimmed()));
}

int PanelFiles::station() const
{
    return identities_.value("HMI_STATION_NUM.txt").toInt(nullptr, 16);
}

QByteArray PanelFiles::read(const QString &name) const
{
    QFile file(folder_ + '/' + name);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QByteArray PanelFiles::flagFile(int level) const
{
    QByteArray bytes;
    for (int item = 0; item < flags_[level].size(); ++item) {
        QByteArray record = items_[level].value(item).toLatin1() + ": " + flags_[level][item];
        record.append(QByteArray(itemSize - 2 - record.size(), '\0'));
        bytes += record + "\r\n";
    }
    return bytes;
}

void PanelFiles::setItem(int level, int item, char result)
{
    if (item >= 1 && item <= flags_[level].size())
        flags_[level][item - 1] = result;
}

void PanelFiles::booted()
{
    running_ = level();
    if (running_ == Ict)
        year_ = 2015;
    append("==================== Test Start ====================\n" + level_ + date()
           + flagFile(running_));
    records_ << "Boot up at " + QByteArray(levelName(running_)) + "\n\n";
    if (flags_[running_].isEmpty())
        flags_[running_] = QByteArray(items_[running_].size(), '0');
    if (running_ == Bi && !identities_.contains("HMI_STATION_NUM.txt"))
        identities_["HMI_STATION_NUM.txt"] = "00";
    const bool named = !identities_.value("HMI_MACHINE_ID.txt").isEmpty();
    if (named && running_ == T1 && factory_ == 1) {
        setItem(T1, 14, '1');
        setItem(T1, 16, '1');
    }
    if (named && running_ == Bi && factory_ != 1)
        setItem(Bi, 5, '1');
}

// What the panel's own copies of the last request and reply hold is bounded, and so is what it
// logs. A touch pass is answered after the screen has shown the request, which takes its line end
// off.
void PanelFiles::traffic(const StepResult &result)
{
    static const QList<QByteArray> touchPasses = {"9000", "9004", "9001"};
    if (running_ == Bi)
        return;
    QByteArray request = result.request.left(maximumShown);
    if (touchPasses.contains(result.step.code))
        request.chop(2);
    // The battery frame goes out without its line feed but is logged with it.
    const char *end = result.reply.kind == Reply::Battery ? "\n\n" : "\n";
    records_ << "---> " + request + "<--- " + result.answer.bytes.left(maximumShown) + end;
}

void PanelFiles::changed(const QByteArray &level)
{
    level_ = level.leftJustified(3) + '\n';
    const int entered = levelByName(level);
    if (entered >= 0)
        flags_[entered].clear();
}

void PanelFiles::endChecked(const StepResult &result)
{
    static const char *const next[] = {"T1", "BI", "T2", "HMI"};
    const bool straight = result.step.code == "0101";
    const bool passed = result.reply.payload == result.step.code;
    const int last = items_[running_].size();
    if (passed && flags_[running_].left(last - 1).count('1') != last - 1)
        records_ << "(end check passed with items missing)";
    setItem(running_, last, passed ? '1' : 'F');
    if (passed) {
        level_ = straight ? "HMI\n" : QByteArray(next[running_]).leftJustified(3) + '\n';
        if (!straight && running_ != T2)
            flags_[running_ + 1].clear();
        if (straight || running_ == T2)
            append("HMI_ICT_CHECK_OK And Clear All SRAM Data Pass!!!\n");
    }
    append(date() + flagFile(running_) + "===================== Test End =====================\n");
    traffic(result); // the panel closes an end check with a record of its own
}

// The factory shows in the 9th character, the 10th of an 18-character ID; one of them numbers its
// panels in the ID.
void PanelFiles::identified(const QByteArray &id)
{
    identities_["HMI_MACHINE_ID.txt"] = id;
    const char marker = id.size() == 18 ? id[9] : id.size() > 9 ? id[8] : '\0';
    factory_ = marker == 'W' ? 1 : marker == 'T' ? 2 : 0;
    if (factory_ != 1)
        return;
    setItem(T1, 14, '1');
    setItem(T1, 16, '1');
    const int digits = id.right(2).toInt();
    identities_["HMI_STATION_NUM.txt"] =
        QByteArray::number(digits == 0 ? 100 : digits, 16).rightJustified(2, '0').toUpper();
}

// Whether an item of the three-in-one COM test (4, 5, 6) had passed when the test failed at a later
// step. The cross test at its end counts for no item.
static bool passedBefore(const QByteArray &reply, int item)
{
    return item == 4 || (item == 5 && reply != "81F2") || (item == 6 && reply == "81F3");
}

void PanelFiles::exchanged(const StepResult &result)
{
    const QByteArray &code = result.step.code, &reply = result.reply.payload;
    const Command *command = findCommand(code);
    if (result.reply.kind == Reply::None || !command)
        return;
    // What the panel holds to be passed; the station may be of another mind (a voltage, a colour).
    const QByteArray own = code.size() == 2 ? code + "00" : code;
    const bool framed = result.reply.kind == Reply::Frame;
    const bool flat = result.reply.kind == Reply::Battery && running_ == Bi && code == "8800";
    const bool passed = framed ? reply == own || reply == "0295" : !flat;
    for (int item : result.step.items)
        setItem(running_, item,
                passed || (code == "810A" && passedBefore(reply, item)) ? '1' : 'F');
    if (code == "8800" || code == "8801")
        records_ << "Battery Voltage : "; // and the volts, to a digit that the link does not carry
    if (code == "KLV-")
        append("++++++++ Receive Forcibly Goto Command ++++++++\n");
    if (command->answer != Answer::Raw || framed)
        traffic(result);
    if (code == endCheckCode(running_) || code == "0101")
        endChecked(result);
    else if (code == "KLV-" && reply.endsWith("_PASS")) {
        const QByteArray level = result.step.argument.toLatin1();
        append("QZ! ===== Forcibly Goto " + level + " Pass!! =====\n");
        changed(level);
    } else if (code == "KLV-")
        append("=.=Forcibly Goto Fail=.=\n");
    else if (code.startsWith("CC") && reply == code)
        append(QByteArray("------ Export Log From ") + (code[2] == '0' ? "Partition" : "Folder")
               + " to " + (code[3] == '0' ? "USB" : "SD") + " ------\n");
    else if (code == "8D")
        year_ = QDate::currentDate().year();
    else if (code == "8A00" && passed)
        identities_["HMI_STATION_NUM.txt"] = result.request.mid(1, 2);
    else if (code == "0601" && passed)
        identified(result.request.mid(7, result.request.size() - 11));
    else if (code == "0602" && passed)
        identities_["HMI_SEMIMACHINE_ID.txt"] = result.request.mid(7, result.request.size() - 11);
}

// The first bytes in quotes, without the zeros that fill a record.
static QString excerpt(const QByteArray &bytes)
{
    const int zeros = bytes.indexOf(QByteArray(3, '\0'));
    return bytes.isEmpty() ? QString("nothing")
                           : '"' + printable(zeros > 0 ? bytes.left(zeros) : bytes.left(60)) + '"';
}

void PanelFiles::compare(QStringList *faults, const QString &name, const QByteArray &wanted) const
{
    const QByteArray found = read(name);
    if (found.isNull() && !wanted.isEmpty())
        *faults << name + " is missing";
    int at = 0;
    while (at < found.size() && at < wanted.size() && found[at] == wanted[at])
        ++at;
    if (!found.isNull() && found != wanted)
        *faults << QString("%1 differs at byte %2: %3 instead of %4")
                       .arg(name)
                       .arg(at)
                       .arg(excerpt(found.mid(at)), excerpt(wanted.mid(at)));
}

// Records of exactly 100 bytes: a date line, the text, zero bytes to the end.
void PanelFiles::compareFactoryLog(QStringList *faults) const
{
    const QString name = "FactoryTestLog.txt";
    const QByteArray found = read(name);
    if (found.size() != recordSize * records_.size())
        *faults << QString("%1 has %2 bytes instead of %3 records of %4")
                       .arg(name)
                       .arg(found.size())
                       .arg(records_.size())
                       .arg(recordSize);
    static const QRegularExpression date("^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\n$");
    for (int i = 0; i < qMin(records_.size(), found.size() / recordSize); ++i) {
        const QByteArray record = found.mid(i * recordSize, recordSize);
        QByteArray text = record.mid(20);
        const int end = text.indexOf('\0');
        const bool padded = end < 0 || text.mid(end).count('\0') == text.size() - end;
        text = end < 0 ? text : text.left(end);
        const QByteArray wanted = records_[i].left(recordSize - 20);
        const bool open = records_[i] == "Battery Voltage : ";
        if (!date.match(record.left(20)).hasMatch() || !padded
            || !(open ? text.startsWith(wanted) : text == wanted))
            return void(*faults << QString("%1, record %2: %3 instead of %4")
                                       .arg(name)
                                       .arg(i)
                                       .arg(excerpt(record), excerpt(wanted)));
    }
}

QStringList PanelFiles::differences() const
{
    QStringList faults;
    compare(&faults, "HMI_TEST_LEVEL.txt", level_);
    for (int level = 0; level < LevelCount; ++level)
        compare(&faults, QString("HMI_%1_TEST_Flag.txt").arg(levelName(level)), flagFile(level));
    for (auto file = identities_.begin(); file != identities_.end(); ++file)
        compare(&faults, file.key(), file.value());
    static const QRegularExpression date("^(?=.*\\d\\d:\\d\\d:\\d\\d).*\\b(\\d{4})\\b");
    QList<QByteArray> found = resumeLog().split('\n');
    for (QByteArray &line : found) {
        const QRegularExpressionMatch match = date.match(textOf(line));
        if (match.hasMatch())
            line = "<date of " + match.captured(1).toLatin1() + '>';
    }
    const QList<QByteArray> wanted = resume_.split('\n');
    for (int i = 0; i < qMax(found.size(), wanted.size()); ++i)
        if (found.value(i) != wanted.value(i)) {
            faults << QString("HMI_Factory_Resume.txt, line %1: %2 instead of %3")
                          .arg(i + 1)
                          .arg(excerpt(found.value(i)), excerpt(wanted.value(i)));
            break;
        }
    compareFactoryLog(&faults);
    // Nothing else may have come to lie among the logs.
    static const QRegularExpression known(
        "^(HMI_(ICT|T1|BI|T2)_TEST_Flag|HMI_TEST_LEVEL|HMI_Factory_Resume|FactoryTestLog"
        "|HMI_(STATION_NUM|MACHINE_ID|SEMIMACHINE_ID)|T[12]_TP_Value)\\.txt$");
    for (const QString &name : QDir(folder_).entryList({"*.txt"}, QDir::Files))
        if (!known.match(name).hasMatch())
            faults << name + " does not belong there";
    return faults;
}

QStringList PanelFiles::faults(int patienceMs) const
{
    QElapsedTimer clock;
    clock.start();
    QStringList faults = differences();
    while (!faults.isEmpty() && clock.elapsed() < patienceMs) {
        QThread::msleep(20);
        faults = differences();
    }
    return faults;
}
