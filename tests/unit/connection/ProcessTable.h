#ifndef TESTS_UNIT_CONNECTION_PROCESSTABLE_H
#define TESTS_UNIT_CONNECTION_PROCESSTABLE_H

/* The process table as the code under test sees it. */

#include <string>
#include <sys/time.h>
#include <sys/types.h>
#include <vector>

struct Process {
    pid_t pid;
    std::string name;
};

/* What one call answers; a call for the size never looks at anything but error and size. */
struct TableAnswer {
    int error = 0; // errno, 0 for success
    std::vector<Process> processes;
};

/* Answers the calls one after the other; the last answer is for all that follow. */
void AnswerProcessTable(std::vector<TableAnswer> answers);

/* Any number of scans that all find these processes. */
void SetProcesses(std::vector<Process> processes);

/* The start time of every process there is; zero unless set: there is no record of any. */
void SetStartTime(timeval startTime);

/* How often the whole table was asked for so far. */
int CountTableCalls();

#endif
