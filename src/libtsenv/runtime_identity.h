// For which client product this process runs, and every name that follows from it. The executable's own name tells.
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>

namespace tlm {

// The names of the default product; DetectClient turns them into those of another.
struct RuntimeIdentity {
  std::string RUNTIME_JM_VERSION_1X_X = "10.0";
  std::string RUNTIME_JM_VERSION_YEAR = "2010";
  std::string RUNTIME_JM_PRODUCT_SHORT_PREFIX = "tlm";
  std::string RUNTIME_JM_PRODUCT_SHORT_SUFFIX;
  std::string RUNTIME_JM_PRODUCT_LONG_PREFIX = "Corvanta Tessarine Lumora";
  std::string RUNTIME_JM_PRODUCT_LONG_SUFFIX;
  std::string RUNTIME_JM_JM_SHORT_NAME = "jm";
  std::string RUNTIME_JM_JM_LONG_NAME = " Job Manager";
  std::string RUNTIME_JM_VERSION = "tlm2010";
  std::string RUNTIME_JM_SHORT_NAME = "tlmjm2010";
  std::string RUNTIME_JM_LONG_NAME = "Corvanta Tessarine Lumora 2010 Job Manager";
  std::string RUNTIME_JM_STATUS_FILE = "/tlm2010.sta";
  std::string RUNTIME_JM_DISTPOOL_STATUS_FILE = "/tlm2010_dp.sta";
  std::string RUNTIME_JM_ENVIRONMENT = "TSQOR";
  std::string RUNTIME_JM_ENVIRONMENT_HOME = "TSQOR_HOME";
  std::string RUNTIME_JM_ENVIRONMENT_DAT = "TSQOR_DAT";
  std::string RUNTIME_JM_ENVIRONMENT_PORT = "TSQOR_JMPORT";
  std::string RUNTIME_JM_ENVIRONMENT_TRACE = "TSQOR_TRACE";
  std::string RUNTIME_JM_ENVIRONMENT_EXPIRY = "TSQOR_TMP_EXPIRY";
  std::string RUNTIME_JM_ENVIRONMENT_SIGNALS = "TSQOR_DONT_KILL_VIA_SIGNALS";

  std::uint16_t DefaultPort = 20317;
};

struct RuntimeName {
  const char* Name;
  std::string RuntimeIdentity::*Value;
};

// The twenty names in the order of the record.
extern const std::array<RuntimeName, 20> kRuntimeNames;

// Looks for a client's word anywhere in the program's path, with case. A path with one gets that client's port and
// names, and the client is told to the environment; any other path gets the default port and changes nothing else.
void DetectClient(const std::string& path, RuntimeIdentity& identity);

// The identity of this process. DetectClient(path) comes first in the program and before other threads start; from then
// on it never changes.
void DetectClient(const std::string& path);
const RuntimeIdentity& Identity();
std::uint16_t DefaultPort();

// The twenty values, each on a line of its own.
void PrintRuntimeVariables(std::FILE* output, const RuntimeIdentity& identity = Identity());

}  // namespace tlm
