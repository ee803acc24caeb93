// The forced level change: a bare line "KLV-<model>-<two digits>" of any length, answered with bare
// text.
#include "levelflow.h"
#include "link/factorylog.h"
#include "link/frame.h"
#include "link/reply.h"
#include "link/serialports.h"
#include "mainwindow.h"
#include "resumelog.h"

#include <cstring>
#include <unistd.h>

constexpr int LastTextByte = LinkBufferSize - 1; // index of the NUL of a full buffer
constexpr char ModelPrefix[] = "Model=";

// Reads on until the line goes quiet. What does not fit the buffer is read to its end all the same,
// so that its tail is not taken for the next request.
static bool readLine()
{
    int length = ShortFrameSize;
    char byte;
    while (readExactly(linkReadFd(), &byte, 1)) {
        if (length < LastTextByte)
            UART_Buffer[length] = byte;
        ++length;
    }
    return length <= LastTextByte;
}

// The characters after the line's model name and '-', null if the model is not this panel's. The
// line is compared by prefix: a shorter model name of the same family matches.
static const char *targetDigits()
{
    const char *dash = strchr(UART_Buffer + 4, '-');
    const char *model = HMIAppModel + strlen(ModelPrefix);
    return dash && strncmp(UART_Buffer, model, size_t(dash - UART_Buffer)) == 0 ? dash + 1
                                                                                : nullptr;
}

static void refuse()
{
    appendToResumeLog("echo =.=Forcibly Goto Fail=.= " TO_RESUME_LOG);
    sendRaw("FORCIBLY_GOTO_FAIL");
}

static void confirm(const char *levelName)
{
    appendToResumeLog(QByteArray("echo QZ! ===== Forcibly Goto ")
                          .append(levelName)
                          .append(" Pass!! ===== " TO_RESUME_LOG)
                          .constData());
    sendRaw(QByteArray("FORCIBLY_GOTO_") + levelName + "_PASS");
}

static bool names(const char *digits, const char *wireCode)
{
    return strncmp(digits, wireCode, 2) == 0;
}

// False when the level could not be changed. Unknown digits empty the file and are not answered.
static bool changeLevelTo(const char *digits)
{
    for (const Level &level : levels) {
        if (!names(digits, level.wireCode))
            continue;
        if (!changeLevel(level.fileText, {&level}))
            return false;
        confirm(level.name);
        return true;
    }
    if (!names(digits, HmiWireCode))
        return changeLevel(NoLevelText, {});
    if (!changeLevel(HmiLevelText, {}))
        return false;
    confirm("HMI");
    return true;
}

void MainWindow::receiveForcedChange()
{
    appendToResumeLog("echo ++++++++ Receive Forcibly Goto Command ++++++++" TO_RESUME_LOG);
    const char *digits = readLine() ? targetDigits() : nullptr;
    if (digits)
        setLinkBuffer(UART_Buffer_ShowInInfo, UART_Buffer);
    if (digits && changeLevelTo(digits))
        sync();
    else
        refuse();
    factoryLog(nullptr); // which keeps no traffic at BI
}
