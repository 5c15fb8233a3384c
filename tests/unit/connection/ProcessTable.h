#ifndef TESTS_UNIT_CONNECTION_PROCESSTABLE_H
#define TESTS_UNIT_CONNECTION_PROCESSTABLE_H

/* A fake process table. */

#include <sys/time.h>
#include <sys/types.h>

#include <string>
#include <vector>

struct Process {
    pid_t pid;
    std::string name;
};

/* The result of one call. A call for the size uses only the error and the number of processes. */
struct TableAnswer {
    int error = 0; // errno, 0 for success
    std::vector<Process> processes;
};

/* Calls get the answers in order; the last one is used for all further calls. */
void AnswerProcessTable(std::vector<TableAnswer> answers);

/* All calls succeed with these processes. */
void SetProcesses(std::vector<Process> processes);

/* The start time of every process. At first there is none, which reads as zero. */
void SetStartTime(timeval startTime);

/* The number of sysctl calls for the table so far. */
int CountTableCalls();

#endif
