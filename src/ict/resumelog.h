// The resume log: the panel's history of boots, end checks, forced changes and exports, for people.
#pragma once

struct Level;

// Every entry is the output of a shell command appended to the log, so an agent that dies in the
// middle leaves whole lines. The command lines are those of the panels in the field byte for byte,
// among it the two blanks that most fixed lines carry before ">>".
#define RESUME_LOG "/usr/local/ict/HMI_Factory_Resume.txt"
#define TO_RESUME_LOG " >> " RESUME_LOG

// Runs the shell command `command`, which carries its own redirection into the log.
void appendToResumeLog(const char *command);

// Appends the output of `date`.
void appendDateToResumeLog();

// Appends what `cat` prints of the level's flag file, zero bytes and all.
void appendFlagFileToResumeLog(const Level &level);
