#include "resumelog.h"

#include "state/levels.h"
#include "system/command.h"

void appendToResumeLog(const char *command)
{
    runShell(command);
}

void appendDateToResumeLog()
{
    runShell("date" TO_RESUME_LOG);
}

void appendFlagFileToResumeLog(const Level &level)
{
    runShell(QByteArray("cat ").append(level.flagFile).append(TO_RESUME_LOG).constData());
}
