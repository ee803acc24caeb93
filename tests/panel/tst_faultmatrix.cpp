#include "commands/codec.h"
#include "panel/agentpanel.h"
#include "panel/faultrows.h"

#include <QMap>

// Every way in which fixture or panel can be out of order, against the reply that it must cause:
// the item at fault fails with its code, every other item stays as it was, and once the fault is
// gone the item passes. The waits that the tests prescribe add up to minutes, so panels are tested
// side by side.
class TstFaultMatrix : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void fault_data();
    void fault();

private:
    QMap<QString, QString> outcome_; // by row; empty for as it must be
};

namespace {

// One panel on its way through its series.
class Lane {
public:
    explicit Lane(const Series &series)
        : series_(series)
    {
        AgentPanel &at = at_;
        QByteArray lines;
        for (int i = 1; i <= 10; ++i)
            lines += "line " + QByteArray::number(i) + '\n';
        at.panel.writeFile(at.ict("T1_TP_Value.txt"), lines);
        at.panel.writeFile(at.ict("T2_TP_Value.txt"), lines);
        QDir().mkpath(at.panel.hostPath("/mnt/ict_log"));
        QProcess::execute("tar",
                          {"czf", at.panel.hostPath("/mnt/ict_log/ict_log.tgz"), "-C",
                           at.panel.hostPath("/usr/local/ict"), "T1_TP_Value.txt"});
        if (qstrcmp(series.level, "T2") == 0) {
            at.panel.writeFile(at.ict("HMI_MACHINE_ID.txt"), machineId);
            at.panel.writeFile(at.ict("HMI_SEMIMACHINE_ID.txt"), semiId);
        }
    }
    bool boot()
    {
        // The storage test finds its medium once the RAM disk is there.
        return at_.boot(series_.level)
            && waitFor(
                   [this] {
                       return QFile::exists(at_.panel.hostPath("/mnt/ramdisk/HMI_ICT_Test.txt"));
                   },
                   DeadlineMs);
    }
    QString run(const Row &row);

private:
    QString tryOnce(const Row &row);
    QByteArray requestOf(const QByteArray &request);
    QByteArray screenColour(const QByteArray &wanted);
    QByteArray ask(const QByteArray &request, const QByteArray &wanted, int size);
    QString check(const Row &row, const char *reply, char result);
    bool leftInOrder(const QByteArray &request);

    const Series &series_;
    AgentPanel at_;
};

QByteArray Lane::requestOf(const QByteArray &request)
{
    const QDateTime now = QDateTime::currentDateTimeUtc();
    if (request == "8D" || request == "8E")
        return clockRequest(request, now);
    if (request == "0602" || request == "0603")
        return identityFrame(request, semiId);
    if (request.endsWith("0601"))
        return identityFrame("0601", request.size() > 4 ? numberedId : machineId);
    return requestFrame(request.right(4), request.size() > 4 ? request.left(2) : "00");
}

// The colour of the whole screen, once it is as wanted. The reply comes before the paint.
QByteArray Lane::screenColour(const QByteArray &wanted)
{
    const QImage image = at_.panel.screen().waitFor(
        [&wanted](const QImage &image) {
            QImage plain = image;
            plain.fill(QColor(QString(wanted)));
            return plain == image;
        },
        DeadlineMs);
    return image.isNull() ? "nothing" : image.pixelColor(0, 0).name().toLatin1();
}

// What the station receives: `size` bytes, and more that follow at once. And what it sees beside
// it.
QByteArray Lane::ask(const QByteArray &request, const QByteArray &wanted, int size)
{
    if (request == "9002")
        at_.panel.touchPress({400, 240});
    QByteArray reply = at_.ask(requestOf(request), size);
    reply += at_.link().read(100, 60);
    if (request == "9002")
        at_.panel.touchRelease();
    if (request == "9301" || request == "9302")
        return reply.mid(3, 4) + " at " + QByteArray::number(at_.panel.backlight()) + " %";
    if (request >= "9504" && request <= "9506")
        return reply.mid(3, 4) + " shows " + screenColour(wanted.right(7));
    return reply;
}

// What tests of the display and the buzzer owe to those that follow: the probes disconnected, the
// tone off.
bool Lane::leftInOrder(const QByteArray &request)
{
    VirtualPanel &panel = at_.panel;
    if (request.startsWith("92"))
        return panel.events().tones(monotonicNs(), monotonicNs()).last() == 0;
    if (!QList<QByteArray>{"9502", "9503", "9508", "9509"}.contains(request))
        return true;
    const QVector<ToolCall> calls = panel.calls();
    return !calls.isEmpty() && calls.last().tool == "lcd_circuit_test_uninit.sh"
        && !panel.port(Port::ttyO4)->isOpenOnPanel();
}

// Empty if the reply is right and no item but the row's has changed.
QString Lane::check(const Row &row, const char *reply, char result)
{
    QByteArray wanted = reply;
    const bool digits = wanted.size() == 4;
    if (wanted == "ID") {
        const QByteArray code(row.request);
        wanted = identityFrame(code, code == "0701" ? machineId : semiId);
    } else if (digits) {
        wanted = requestFrame(wanted);
    }
    QByteArray results = at_.results(series_.level);
    const bool seen = wanted.contains(" at ") || wanted.contains(" shows ");
    const QByteArray got = ask(row.request, wanted, seen ? 11 : wanted.size());
    if (got != wanted)
        return QString("answered \"%1\" instead of \"%2\"").arg(printable(got), printable(wanted));
    if (row.item && result)
        results[row.item - 1] = result;
    // The panel records after it has answered.
    if (!waitFor([&] { return at_.results(series_.level) == results; }, DeadlineMs))
        return QString("item results %1 instead of %2")
            .arg(QString(at_.results(series_.level)), QString(results));
    if (!waitFor([&] { return leftInOrder(row.request); }, DeadlineMs))
        return "leaves the buzzer on, the display's pattern or COM2 open";
    return {};
}

// The panel waits 100 to 450 ms for a probe on a port. On a busy machine the kernel may hand on its
// bytes later, and the panel is right to fail: what is wrong with it is so again and again.
QString Lane::run(const Row &row)
{
    const QByteArray request = row.request;
    const bool probed = request.startsWith("81") || request.startsWith("95") || request == "FF01";
    QString wrong;
    int tries = probed ? 3 : 1;
    do
        wrong = tryOnce(row);
    while (!wrong.isEmpty() && --tries > 0);
    return wrong;
}

QString Lane::tryOnce(const Row &row)
{
    QString wrong;
    const auto set = [&](const QString &fault) {
        if (!fault.isEmpty() && wrong.isEmpty())
            wrong = at_.fixture.act("fault", "set " + fault);
    };
    set(row.kind);
    // A failure is to be seen behind a pass.
    const bool seen = at_.results(series_.level).mid(row.item - 1, 1) == "1";
    if (row.good && row.bad && row.item && row.badResult == 'F' && !series_.cycle && !seen
        && wrong.isEmpty())
        wrong = check(row, row.good, '1');
    set(row.fault);
    if (series_.cycle && *row.fault && !boot())
        wrong = "does not boot";
    if (row.bad && wrong.isEmpty())
        wrong = check(row, row.bad, row.badResult);
    if (*row.fault)
        at_.fixture.clearFault(row.fault);
    if (series_.cycle && row.good && !boot())
        wrong = "does not boot";
    if (row.good && wrong.isEmpty()) {
        wrong = check(row, row.good, '1');
        if (!wrong.isEmpty())
            wrong = "without the fault: " + wrong;
    }
    at_.fixture.clearAll();
    return wrong;
}

} // namespace

void TstFaultMatrix::initTestCase()
{
    // The long waits side by side, the rest one after the other beside them, so that the panels do
    // not slow each other down.
    QMutex mutex;
    QElapsedTimer clock;
    clock.start();
    const auto go = [&](const QVector<int> &indices) {
        for (int index : indices) {
            const Series &series = allSeries[index];
            Lane lane(series);
            const bool on = lane.boot();
            for (const Row &row : series.rows) {
                const QString wrong = on ? lane.run(row) : "the panel does not boot";
                const QMutexLocker lock(&mutex);
                outcome_[row.name(series.name)] = wrong;
                printf("%6.1f s  %-50s %s\n", double(clock.elapsed()) / 1000,
                       qPrintable(row.name(series.name)),
                       wrong.isEmpty() ? "ok" : qPrintable(wrong));
                fflush(stdout); // minutes would pass without a word
            }
        }
    };
    QVector<QThread *> threads;
    for (const QVector<int> &indices : {QVector<int>{0, 1}, {2, 3, 4}, {5}, {6, 7}}) {
        threads << QThread::create(go, indices);
        threads.last()->start();
    }
    for (QThread *thread : threads)
        thread->wait();
    qDeleteAll(threads);
}

void TstFaultMatrix::fault_data()
{
    QTest::addColumn<QString>("row");
    for (const Series &series : allSeries) {
        for (const Row &row : series.rows) {
            const QString name = row.name(series.name);
            QTest::newRow(qPrintable(name)) << name;
        }
    }
}

void TstFaultMatrix::fault()
{
    QFETCH(QString, row);
    const QString wrong = outcome_.value(row, "was not tried");
    QVERIFY2(wrong.isEmpty(), qPrintable(wrong));
}

QTEST_GUILESS_MAIN(TstFaultMatrix)
#include "tst_faultmatrix.moc"
