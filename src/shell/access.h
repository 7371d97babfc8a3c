// The settings that say who may do what with this server. Off unless they are set.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "rpc/admission.h"
#include "store/job_manager_state.h"

namespace tlm {

struct Access {
  std::uint32_t Listen = 0;  // local address in network order, 0 for all of them
  tlm::Admission Admission;
  tlm::Restrictions Restrictions;
  std::string JobLog;               // path of the file, empty for none
  std::uint64_t JobLogSize = 0;     // bytes of that file at most
  std::vector<std::string> Faults;  // a line for each setting that cannot be understood
};

Access ReadAccess();

// What whoever starts the server has to know of it, a line each.
std::vector<std::string> DescribeAccess(const Access& access, std::uint16_t port, const std::string& user);

}  // namespace tlm
