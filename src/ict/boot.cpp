// The boot of ICT mode, step by step, before the window is shown. Every step is waited for unless
// it says otherwise; no script's exit status matters, a panel with half its image still has to
// answer the station.
#include "hwtest/clock.h"
#include "hwtest/factory.h"
#include "link/factorylog.h"
#include "link/reply.h"
#include "link/serialports.h"
#include "mainwindow.h"
#include "resumelog.h"
#include "screen/ictscreen.h"
#include "state/itemrecord.h"
#include "state/levels.h"
#include "system/command.h"
#include "system/files.h"
#include "system/screensize.h"
#include "ui_mainwindow.h"

#include <QProcess>
#include <QTimer>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

constexpr int TickMs = 100;

// The panel's own address in the test fixture's network plan.
static const char fixtureNetwork[] = "ifconfig eth0 192.168.123.111 netmask 255.255.255.0 up";

// --- Product application -------------------------------------------------------------------------

// Copies an identity line of the product application, line end included, if it fits.
static bool keepLine(const QByteArray &line, char (&info)[AppInfoSize], const char *what)
{
    if (line.size() >= AppInfoSize) {
        printf("Get %s info failed, ba = %s, length = %d\n", what, line.constData(), line.size());
        return false;
    }
    memcpy(info, line.constData(), size_t(line.size()) + 1);
    return true;
}

// Whether both lines are there, whole.
static bool hasIdentity(const QByteArray &output)
{
    const QByteArray text = '\n' + output.left(output.lastIndexOf('\n'));
    return text.contains("\nModel=KLV-") && text.contains("\nVersion=");
}

static void readApplicationInfo()
{
    QProcess application;
    application.setWorkingDirectory(QStringLiteral("/usr/local/HMIAPP"));
    startProcess(application, QStringLiteral("/usr/local/HMIAPP/HMIApp -platform linuxfb -v"));
    loadGlyphs(); // while the application, a large program, starts up
    const QByteArray output = awaitOutput(application, NoTimeLimit, hasIdentity);
    memset(HMIAppModel, 0, sizeof HMIAppModel);
    memset(HMIAppVersion, 0, sizeof HMIAppVersion);
    bool isModelGet = false;
    bool isVersionGet = false;
    int start = 0;
    for (int end; (end = output.indexOf('\n', start)) >= 0; start = end + 1) {
        const QByteArray line = output.mid(start, end + 1 - start);
        if (line.startsWith("Model=KLV-"))
            isModelGet |= keepLine(line, HMIAppModel, "Model");
        else if (line.startsWith("Version="))
            isVersionGet |= keepLine(line, HMIAppVersion, "Version");
    }
    if (!isModelGet || !isVersionGet)
        printf("Get Model or Version Info failed, isModelGet = %d, isVersionGet = %d\n", isModelGet,
               isVersionGet);
}

// --- Files that make or end the boot ------------------------------------------------------------

enum class BootFile { Found, Created, Unusable };

// Opens a file of the boot read-write: its first `length` bytes at most are in `text` then. Or
// creates it with `initial`, which is in `text` then. Where neither works, or the medium does not
// give what the file holds, the boot ends and no station gets an answer: standard output says why.
static BootFile openOrCreate(const char *path, const QByteArray &initial, int length,
                             QByteArray *text)
{
    File file(path, O_RDWR);
    if (file.isOpen()) {
        text->fill('\0', length);
        const qint64 there = file.read(text->data(), length);
        if (there >= 0) {
            text->resize(int(there));
            return BootFile::Found;
        }
    } else if (errno == ENOENT) {
        File created(path, O_RDWR | O_CREAT);
        if (created.isOpen()) {
            created.replaceBy(initial); // on a full medium the panel boots all the same
            *text = initial;
            return BootFile::Created;
        }
    }
    printf("Boot ends without a PC link, %s: %s\n", path, strerror(errno));
    return BootFile::Unusable;
}

static bool readLevel()
{
    QByteArray text;
    const BootFile file = openOrCreate(LevelFilePath, levels[LevelICT].fileText, 3, &text);
    if (file == BootFile::Unusable)
        return false;
    if (file == BootFile::Found)
        text.truncate(2); // enough to tell the levels apart
    qstrncpy(gc_LEVEL, text.constData(), sizeof gc_LEVEL);
    g_uiHMI_TEST_LEVEL = levelOfFileText(gc_LEVEL);
    return true;
}

static QByteArray newFlagFile()
{
    QByteArray records;
    for (int i = 0; i < TEST_ITEM; ++i) {
        QByteArray record = Item_UnPASS[i].toLatin1().leftJustified(FlagRecordSize, '\0');
        record[FlagRecordCr] = '\r';
        record[FlagRecordLf] = '\n';
        records += record;
    }
    return records;
}

// A cut of power or a full medium can leave records out, or without their text. Their items would
// pass and never be recorded, on this and all later boots: they are written anew, as not passed.
static QByteArray completed(const QByteArray &found, const QByteArray &fresh)
{
    QByteArray records;
    for (int start = 0; start < fresh.size(); start += FlagRecordSize) {
        const bool whole = found.size() >= start + FlagRecordSize && found[start] != '\0';
        records += (whole ? found : fresh).mid(start, FlagRecordSize);
    }
    if (records != found) {
        File file(g_HMI_TEST_File, O_RDWR);
        file.write(records.constData(), records.size());
        sync();
    }
    return records;
}

static bool readItems()
{
    const QByteArray fresh = newFlagFile();
    QByteArray found;
    if (openOrCreate(g_HMI_TEST_File, fresh, fresh.size(), &found) == BootFile::Unusable)
        return false;
    const QByteArray records = completed(found, fresh);
    for (int i = 0; i < TEST_ITEM; ++i) {
        const QByteArray record = records.mid(i * FlagRecordSize, FlagRecordSize);
        Item_Status[i] = isPassed(record) ? ItemPassed : ItemNotPassed;
    }
    return true;
}

static bool readStation()
{
    QByteArray digits("00");
    if (g_uiHMI_TEST_LEVEL == LevelBI
        && openOrCreate(StationFilePath, "00", 2, &digits) == BootFile::Unusable)
        return false;
    if (*digits.constData() == '\0') // made, but not written: a cut of power or a full medium
        digits = "00";
    qstrncpy(gc_SN, digits.constData(), sizeof gc_SN);
    g_iSTATION_NUM = int(strtol(gc_SN, nullptr, 16));
    return true;
}

// --- Steps ---------------------------------------------------------------------------------------

// Three full-height bands. Each starts on the last pixel column of the one before it, so they
// overlap by a column. Deliberate.
static void makeBands()
{
    const QSize desktop = screenSize();
    const int band = desktop.width() / 3;
    rc_RED = QRect(0, 0, band, desktop.height());
    rc_GRN = QRect(rc_RED.right(), 0, band, desktop.height());
    rc_BLU = QRect(rc_GRN.right(), 0, desktop.width() - rc_GRN.right(), desktop.height());
}

// The ICT item that reports on the backup root file system collects the result later.
static void startRootfsCheck()
{
    if (!Process_Chk_BB) {
        Process_Chk_BB = new QProcess;
        // Its first character is the verdict. The rest is not kept, however much a script says.
        QObject::connect(Process_Chk_BB, &QProcess::readyReadStandardOutput, [] {
            const QByteArray said = Process_Chk_BB->readAllStandardOutput();
            if (!said.isEmpty())
                Process_Chk_BB->ungetChar(said[0]);
        });
    }
    startProcess(*Process_Chk_BB, QStringLiteral("/usr/local/bin/check_bk_rootfs.sh"));
    Chk_BB_result = -1;
}

static void logBoot(TestLevel level)
{
    const Level &row = levels[level];
    appendDateToResumeLog();
    appendFlagFileToResumeLog(row);
    factoryLog(QByteArray("Boot up at ").append(row.name).append('\n').constData());
}

// The machine ID tells the factory that built the unit, and with it the items that are granted.
static void readMachineIdentity()
{
    // A cut of power can leave zeros behind a text that was to be written over by a longer one.
    const QByteArray id = readFile(MachineIdPath, MachineIdFileLimit).constData();
    if (id.isEmpty())
        return;
    classifyFactory(id);
    grantItemsOfFactory();
}

static void openLink()
{
    if (g_uiHMI_TEST_LEVEL != LevelBI) {
        openCom1(ComRS232);
        return;
    }
    // Burn-in racks share one RS-485 bus. The handlers know the link of that level by the COM2
    // descriptors.
    openCom1(ComRS485);
    Com2OpenRS4xx_R_fd2 = Com1OpenRS4xx_R_fd2;
    Com2OpenRS4xx_W_fd2 = Com1OpenRS4xx_W_fd2;
}

void MainWindow::makeScreen()
{
    makeColours();
    makeBands();
    makePaintFonts();
    ui->setupUi(this);
    // A new palette makes the empty central widget dirty beside the window, which the toolkit then
    // paints twice in one repaint: once for itself and once beneath the widget. The second time a
    // one-shot line would be gone.
    ui->centralWidget->setUpdatesEnabled(false);
    if (!Process_WriteMac)
        Process_WriteMac = new QProcess;
    resize(Screen_X, Screen_Y);
    m_clrOrig = palette().color(QPalette::Window);
    setBackground(m_aclrBG[BgWhite]);
}

void MainWindow::ICTMainWindow(QWidget *)
{
    runProcess(QStringLiteral("/usr/local/ict/mount_system.sh"));
    makeScreen();
    runProcess(QString::fromLatin1(fixtureNetwork));
    readApplicationInfo();
    Test_Ret_Char[0] = 'F';
    Test_Ret_Char[1] = '1';

    if (!readLevel())
        return;
    const auto level = TestLevel(g_uiHMI_TEST_LEVEL);
    if (level == LevelICT)
        startRootfsCheck();
    T1_Extern_Item_Flag |= T1ExternRebooted;
    appendToResumeLog("echo ==================== Test Start ====================" TO_RESUME_LOG);
    appendToResumeLog("cat /usr/local/ict/HMI_TEST_LEVEL.txt" TO_RESUME_LOG);
    if (level == LevelICT)
        presetClock();
    selectLevel(level);
    logBoot(level);
    if (!readItems())
        return;
    readMachineIdentity();

    openLink();
    if (!readStation())
        return;
    startBeside(QStringLiteral("/usr/local/ict/create_ramdisk.sh"));

    m_hTimer = new QTimer(this);
    connect(m_hTimer, &QTimer::timeout, this, &MainWindow::ICTTestLoop);
    m_hTimer->start(TickMs);
}
