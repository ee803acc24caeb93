#include "commands/reporting.h"

#include "store/handin.h"

QList<QCommandLineOption> reportOptions(const QString &base)
{
    return {{"plans", "Folder of the plans.", "folder", planFolder()},
            {"report", "Folder for the reports, UNIT/TIMESTAMP inside it, and one page with all.",
             "folder", base},
            {"operator", "Who tests, for the reports.", "name"},
            {"line", "Production line, for the reports and the store; else the host.", "name"},
            {"verbose", "Show the requests and answers."},
            storeOption()};
}

Report reportOf(const QCommandLineParser &parser, const QString &subject, const Values &given)
{
    Report report;
    report.subject = subject;
    report.given = given;
    report.operatorName = parser.value("operator");
    report.line = parser.value("line");
    return report;
}
