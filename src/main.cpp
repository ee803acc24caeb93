// Command line -> run mode.
#include "MouseCalibration/calibrationmode.h"
#include "mainwindow.h"
#include "state/runstate.h"

#include <QApplication>
#include <cstdio>

static int runWindow(quint32 mode)
{
    g_uiTestMode = mode;
    MainWindow window;
    // The toolkit ends a program that shows a window where there is no screen. A board whose
    // framebuffer failed can still answer the station.
    if (QGuiApplication::primaryScreen())
        window.showFullScreen();
    return QApplication::exec();
}

static int printVersion()
{
    qDebug("%c%c%c", HMIFWVersion[7], HMIFWVersion[8], HMIFWVersion[9]);
    return 0;
}

int main(int argc, char *argv[])
{
    // A panel that loses power keeps its last words only if they have left the process.
    setvbuf(stdout, nullptr, _IOLBF, 0);

    // Takes the toolkit's own arguments (-platform linuxfb) out of argc and argv.
    QApplication application(argc, argv);

    // Any other number of arguments than one starts ICT mode; an unknown argument does nothing.
    if (argc != 2)
        return runWindow(ModeICT);
    const QByteArray argument(argv[1]);
    if (argument == "HMIAppCalibation") // so spelled in the start-up scripts of the panels
        return runCalibrationMode();
    if (argument == "GetICTVersion")
        return printVersion();
    const struct {
        const char *argument;
        quint32 mode;
    } modes[] = {{"PFVP_EMS", ModeEMS},
                 {"PFVP_EMI", ModeEMI},
                 {"PFVP_RD", ModeRD},
                 {"PFVP_SLAVE", ModeSlave}};
    for (const auto &row : modes) {
        if (argument == row.argument)
            return runWindow(row.mode);
    }
    return 0;
}
