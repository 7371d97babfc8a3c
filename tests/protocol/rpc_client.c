// Calls the server through what rpcgen makes of docs/protocol/tlm.x.
//   rpc_client PORT HOME
#include <arpa/inet.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "tlm.h"

#define CHECK(condition)                                                        \
  do {                                                                          \
    if (!(condition)) {                                                         \
      fprintf(stderr, "rpc_client.c:%d: not so: %s\n", __LINE__, #condition); \
      exit(1);                                                                  \
    }                                                                           \
  } while (0)

// The result of a call, which has to be answered.
#define CALLED(call)                                            \
  ({                                                            \
    __typeof__(call) answer = (call);                           \
    if (!answer) exit((clnt_perror(server, #call), 1));         \
    answer;                                                     \
  })

static CLIENT* server;
static const char* home;

static char* at(const char* name) {
  static char paths[8][512];
  static int next;
  char* path = paths[next++ % 8];
  snprintf(path, sizeof paths[0], "%s/%s", home, name);
  return path;
}

static tlm_task task_of(u_quad_t handle, bool_t expected) {
  tlm_get_job_args args = {.handle = handle};
  char nothing[] = "";
  args.task.analysis_id = args.task.work_dir = args.task.command = args.task.input_file = args.task.result_stem = nothing;
  args.task.input_stem = args.task.client_note = args.task.task_key = args.task.client_host = nothing;
  const tlm_get_job_reply* reply = CALLED(tlm_get_job_1(&args, server));
  CHECK(reply->changed == expected);
  return reply->task;
}

static void put_file(char* destination, const char* content) {
  tlm_file file = {.destination = destination, .source = "memory", .chunk = {(u_int)strlen(content), (char*)content}};
  tlm_file_list files = {1, &file};
  CHECK(*CALLED(tlm_put_files_1(&files, server)));
}

static u_quad_t submit(char* client) {
  tlm_submission job = {.analysis_id = "", .work_dir = client, .command = "do \"cp in.dat plate.res; cat in.dat\"",
                        .input_file = "in.dat", .result_stem = "plate", .input_stem = "", .client_note = "by rpcgen",
                        .task_key = "", .complete_on_failure = TRUE};
  return *CALLED(tlm_submit_job_1(&job, server));
}

static void run_a_job(void) {
  char* client = at("client/");
  tlm_hello_args hello = {"plm300", "workstation", 0};
  CHECK(*CALLED(tlm_hello_1(&hello, server)));
  tlm_map_client_directory_args map = {client, ""};
  const tlm_map_client_directory_reply* mapped = CALLED(tlm_map_client_directory_1(&map, server));
  CHECK(mapped->mapped);
  char input[600];
  snprintf(input, sizeof input, "%s/in.dat", mapped->server_directory);
  put_file(input, "twelve bytes");
  char* seen = at("client/in.dat");
  CHECK(*CALLED(tlm_client_file_exists_1(&seen, server)));
  tlm_client_file_matches_args match = {seen, 12, 0};
  CHECK(*CALLED(tlm_client_file_matches_1(&match, server)));
  char wrong[600];
  snprintf(wrong, sizeof wrong, "9:0:%s", seen);
  tlm_string entry = wrong;
  tlm_string_list entries = {1, &entry};
  const tlm_check_client_files_reply* missing = CALLED(tlm_check_client_files_1(&entries, server));
  CHECK(!missing->all_match && missing->missing.tlm_string_list_len == 1);
  CHECK(strncmp(missing->missing.tlm_string_list_val[0], "12:0:/", 6) == 0);

  u_quad_t handle = submit(client);
  tlm_task task = task_of(handle, TRUE);
  for (int tries = 0; task.status != TLM_FINISHED && tries < 1000; ++tries) {
    usleep(20000);
    task = task_of(handle, TRUE);
  }
  CHECK(task.status == TLM_FINISHED && strcmp(task.client_note, "by rpcgen") == 0);
  CHECK(task.result_flags & TLM_FLAG_RESULTS_AVAILABLE);
  tlm_read_output_args output = {handle, 7, "> "};
  CHECK(strcmp(*CALLED(tlm_read_output_1(&output, server)), "> bytes") == 0);

  tlm_request_results_args request = {.handle = handle};
  const tlm_request_results_reply* results = CALLED(tlm_request_results_1(&request, server));
  CHECK(results->sent && results->files.tlm_file_list_len == 2);
  const tlm_file* result = results->files.tlm_file_list_val;
  CHECK(strcmp(result->destination, at("client/plate.res")) == 0 && result->end == 0);
  CHECK(result->chunk.chunk_len == 12 && memcmp(result->chunk.chunk_val, "twelve bytes", 12) == 0);
  CHECK(*CALLED(tlm_results_not_sent_1(&handle, server)) && *CALLED(tlm_take_ownership_1(&handle, server)));
  tlm_handle_list some = {1, &handle};
  const tlm_handle_list* jobs = CALLED(tlm_list_jobs_1(&some, server));
  CHECK(jobs->tlm_handle_list_len == 2 && jobs->tlm_handle_list_val[1] == handle);
  CHECK(*CALLED(tlm_remove_job_1(&handle, server)));
  CHECK(CALLED(tlm_list_removed_jobs_1(&some, server))->tlm_handle_list_val[1] == handle);
}

static void set_up_the_queue(void) {
  u_int limit = 5, none = 0;
  CHECK(*CALLED(tlm_set_queue_limit_1(&limit, server)) && !*CALLED(tlm_set_queue_limit_1(&none, server)));
  CHECK(*CALLED(tlm_get_queue_limit_1(NULL, server)) == 5);
  CHECK(*CALLED(tlm_set_local_limit_1(&limit, server)) && *CALLED(tlm_get_local_limit_1(NULL, server)) == 5);
  CHECK(*CALLED(tlm_set_default_priority_1(&limit, server)) && *CALLED(tlm_get_default_priority_1(NULL, server)) == 5);
  CALLED(tlm_stop_queue_1(NULL, server));
  u_quad_t hour = 3600, cancel = ~(u_quad_t)0;
  CHECK(*CALLED(tlm_start_queue_1(&hour, server)) && *CALLED(tlm_get_queue_start_time_1(NULL, server)) > hour);
  CHECK(*CALLED(tlm_start_queue_1(&cancel, server)) && *CALLED(tlm_get_queue_start_time_1(NULL, server)) == 0);
  CHECK(!*CALLED(tlm_is_queue_running_1(NULL, server)) && *CALLED(tlm_get_job_count_1(NULL, server)) == 0);
  tlm_string peers[] = {"peer1", "peer2"};
  tlm_string_list pool = {2, peers};
  CALLED(tlm_set_server_pool_1(&pool, server));  // not awaited by others
  CHECK(strcmp(CALLED(tlm_get_server_pool_1(NULL, server))->tlm_string_list_val[1], "peer2") == 0);
  tlm_variable variable = {"TLM_RPC", "1"};
  tlm_variable_list variables = {1, &variable};
  CALLED(tlm_set_environment_1(&variables, server));
  const tlm_get_temp_root_reply* root = CALLED(tlm_get_temp_root_1(NULL, server));
  CHECK(strcmp(root->directory, at("tmp")) == 0);
}

static void report_as_a_process(void) {
  const u_quad_t self = (u_quad_t)getpid();
  tlm_attach_process_args attach = {self, "rpc_client", at("client")};
  const u_quad_t handle = *CALLED(tlm_attach_process_1(&attach, server));
  tlm_set_progress_args progress = {self, 30};
  CHECK(*CALLED(tlm_set_progress_1(&progress, server)));
  tlm_required_level_args level = {self, 1, (u_quad_t)3 << 32};
  CALLED(tlm_required_level_1(&level, server));
  CHECK(task_of(handle, TRUE).status == TLM_PROGRESS_NOTICE);
  const tlm_task task = task_of(handle, TRUE);
  CHECK(task.progress == 30 && task.task_level == (u_quad_t)3 << 32);
  u_quad_t process = self;
  CHECK(*CALLED(tlm_results_available_1(&process, server)) && *CALLED(tlm_job_succeeded_1(&process, server)));
  CHECK(!*CALLED(tlm_reserved16_1(&process, server)));
}

int main(int count, char** arguments) {
  CHECK(count == 3);
  struct sockaddr_in address = {.sin_family = AF_INET, .sin_port = htons((uint16_t)atoi(arguments[1])),
                                .sin_addr.s_addr = htonl(INADDR_LOOPBACK)};
  int connection = RPC_ANYSOCK;
  home = arguments[2];
  server = clnttcp_create(&address, TLM_JOB_MANAGER, TLM_JOB_MANAGER_1, &connection, 0, 0);
  if (!server) exit((clnt_pcreateerror("server"), 1));
  CALLED(tlm_null_1(NULL, server));
  run_a_job();
  set_up_the_queue();
  report_as_a_process();
  clnt_destroy(server);
  return 0;
}
