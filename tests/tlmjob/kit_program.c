/* A small analysis program. It waits until the file "go" is there, or it is asked to end. */
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <tlmjob.h>
#include <unistd.h>

int main(void) {
  tlmjob_attach();
  if (fork() == 0) {
    tlmjob_succeeded();
    exit(tlmjob_stop_requested());
  }
  wait(NULL);
  tlmjob_required_level(7, 8);
  tlmjob_progress(-1);
  tlmjob_progress(40);
  tlmjob_results_available();
  while (access("go", F_OK) != 0) {
    if (tlmjob_stop_requested()) {
      tlmjob_detach();
      return tlmjob_attach() && tlmjob_stop_requested() ? puts("stopped"), 3 : 4;
    }
    usleep(10000);
  }
  tlmjob_succeeded();
  tlmjob_progress(200);
  return 0;
}
