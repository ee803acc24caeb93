#include "commands/commandline.h"
#include "commands/commands.h"
#include "panel/bencherror.h"
#include "panel/files.h"
#include "station/console.h"
#include "station/report.h"
#include "store/handin.h"
#include "store/store.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>

namespace {

void list(const QVector<QVariantMap> &tests)
{
    for (const QVariantMap &test : tests) {
        const auto text = [&](const char *column) { return test[column].toString(); };
        const bool passed = test["passed"].toBool();
        say(QString("%1  %2  %3  %4  %5  %6")
                .arg(text("clock").left(16).replace('T', ' '), -16)
                .arg(passed ? "passed" : "FAILED")
                .arg(text("unit"), -20)
                .arg(text("level"), -3)
                .arg(text("line"), -12)
                .arg(text("operator")),
            !passed);
    }
}

// A unit's whole history, or which units might be meant.
int find(Store &store, const QString &id)
{
    QVector<QVariantMap> tests = historyOf(store, id);
    if (tests.isEmpty()) {
        tests = historyOf(store, '%' + id + '%');
        QSet<QString> units;
        for (const QVariantMap &test : tests)
            units << test["unit"].toString();
        if (units.size() != 1) {
            list(tests);
            say(units.isEmpty() ? "no unit has " + id + " in its ID"
                                : QString("%1 units have it in their ID").arg(units.size()),
                true);
            return 1;
        }
    }
    const QVariantMap &latest = tests.last();
    say(QString("Unit %1, semi-finished %2, %3, version %4")
            .arg(latest["unit"].toString(), latest["semi"].toString(), latest["model"].toString(),
                 latest["version"].toString()));
    for (const QVariantMap &test : tests) {
        list({test});
        for (const QString &finding : findings(store, test))
            say("    " + finding);
        if (!test["report"].toString().isEmpty())
            say("    " + test["report"].toString() + "/report.html");
    }
    return 0;
}

void writeYield(Store &store, const Period &period, const QString &file, const QString &name)
{
    QJsonObject yield = yieldOf(store, period);
    yield["store"] = name;
    yield["made"] = QDateTime::currentDateTime().toString("yyyy-MM-dd hh:mm");
    const QByteArray page = pageOf("yield.html", QJsonDocument(yield));
    QFile out(file);
    if (!out.open(QIODevice::WriteOnly) || out.write(page) != page.size() || !out.flush())
        throw BenchError(file + " cannot be written: " + out.errorString());
    say("Written: " + file);
}

Period periodOf(const QCommandLineParser &parser)
{
    Period period;
    for (const auto &[name, day] : {std::pair("since", &period.since), {"until", &period.until}}) {
        if (!parser.isSet(name))
            continue;
        *day = parser.value(name);
        if (!QDate::fromString(*day, "yyyy-MM-dd").isValid())
            throw BenchError(QString("--%1 takes a day like 2026-11-21, not %2").arg(name, *day));
    }
    return period;
}

// Stores that might be meant: in the folders beside that of the reports.
QString storesBeside(const QString &base)
{
    const QDir around = QFileInfo(base).dir();
    QStringList stores;
    for (const QString &folder : around.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        if (around.exists(folder + "/units.sqlite"))
            stores << "--report " + around.filePath(folder);
    }
    return stores.isEmpty() ? "--report or --store" : stores.join(" or ");
}

} // namespace

int runUnits(const QStringList &args)
{
    const CommandLine parser(
        args,
        "What is known of the units that `bench station` and `bench produce` have tested: without "
        "more the latest tests,\nwith an ID, or a part of one, a unit's whole history.",
        {{"report", "Folder of the reports.", "folder", "out/station"},
         storeOption(),
         {"since", "Only tests of this day and later ones.", "day"},
         {"until", "Only tests of this day and earlier ones.", "day"},
         {"count", "How many tests to list.", "number", "40"},
         {"csv", "Print tests, steps or values (what was measured) as CSV.", "table"},
         {"yield", "Write a page with yield, failing items, measured values and retests.", "file"},
         {"hand-in",
          "Put into the store what waits for it in the folder of the reports, or the "
          "named report.json files, or all in the named folders."}},
        {{"id", "Machine or semi-finished ID.", "[ID | FILE...]"}});
    const QString base = parser.value("report"), where = storeOf(parser);
    const QStringList named = parser.positionalArguments();
    const Period period = periodOf(parser);
    if (parser.isSet("hand-in")) {
        const int added = named.isEmpty() ? handInWaiting(where, base) : handIn(where, named);
        say(QString("%1 runs were new to the store").arg(added));
        return 0;
    }
    if (!where.startsWith("postgres") && !QFileInfo::exists(where))
        throw BenchError(
            QString("there is no store %1: choose one by %2").arg(where, storesBeside(base)));
    Store store(where);
    if (parser.isSet("yield")) {
        writeYield(store, period, parser.value("yield"), Store::nameOf(where));
    } else if (parser.isSet("csv")) {
        QFile out;
        if (!out.open(stdout, QIODevice::WriteOnly))
            throw BenchError("standard output: " + out.errorString());
        writeCsv(store, parser.value("csv"), period, named.value(0, "%"), &out);
        if (!out.flush())
            throw BenchError("the table cannot be written: " + out.errorString());
    } else if (!named.isEmpty()) {
        return find(store, named.first());
    } else {
        list(latestTests(store, period, parser.number("count", 1, 1000000)));
    }
    return 0;
}
