/* Reports of an analysis program to the job manager that runs it. For C, C++ and, by tlmjob.f90, Fortran; link with
 * -ltlmjob. docs/job-kit.md tells how to use it.
 *
 * The program need not know whether it is a job: if it is not, every call returns at once, does nothing and prints
 * nothing. A job is known by the process that the job manager has started. If that is a script or an interpreter, the
 * programs that it starts report for it.
 *
 * Any thread may call any function. In a process that is a mere fork of the program they do nothing. */
#ifndef TLMJOB_H
#define TLMJOB_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Call it first: the calls below do nothing before, and from now on the job manager asks the program to end rather than
 * ending it. Does not wait for the job manager. If that cannot be reached, a line on standard error says so, and the
 * program goes on alone. A success that was reported for the job before counts no more. 1 if the program is a job, else
 * 0. No effect if it is attached. */
int tlmjob_attach(void);

/* How far the analysis is, 0 to 100; what lies outside is taken for the nearer of the two. Does not wait, so it may be
 * called often: of several percentages only the latest is sent. */
void tlmjob_progress(int percent);

/* What the analysis takes, two numbers with a meaning of the site's own. Does not wait, and only the latest pair
 * is sent. */
void tlmjob_required_level(uint64_t type, uint64_t level);

/* The result files are there, whole: clients may fetch them from now on, while the program goes on. Returns when the
 * job manager knows, or when a stop is requested, or when the job manager has not answered for 60 seconds; then the
 * line on standard error says that the program goes on alone. So do the next two. */
void tlmjob_results_available(void);

/* The analysis has succeeded. A job whose program ends without this counts as failed, whatever its exit code. */
void tlmjob_succeeded(void);

/* The analysis should be tried again. The job manager notes it down. */
void tlmjob_retry(void);

/* 1 if the job manager has asked the program to end, else 0. Cheap enough for every iteration. Once it is 1 it stays 1,
 * also when the program detaches, and the program has 10 seconds to end before it is made to. */
int tlmjob_stop_requested(void);

/* No more reports will come. Returns as tlmjob_results_available does, with all of them delivered. At exit() it is
 * called by itself; a program that ends in another way, by _exit() or quick_exit(), has to call it. */
void tlmjob_detach(void);

#ifdef __cplusplus
}
#endif

#endif
