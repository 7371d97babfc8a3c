#include "store/job.h"

namespace tlm {

namespace {

std::string Entry(const char* label, const std::string& value, const char* closing) {
  return "(" + std::string(label) + "=" + value + closing;
}

const char* Word(bool value) { return value ? "true" : "false"; }

template <class Map, class Format>
std::string ListText(const Map& map, Format format) {
  std::string text = "(Count=" + std::to_string(map.size()) + "),";
  for (const auto& [name, value] : map) text += Entry(name.c_str(), format(value), "),");
  return text;
}

}  // namespace

std::string DescribeJob(const Job& job) {
  const auto size = [](std::uint32_t value) { return std::to_string(value); };
  const auto date = [](std::int64_t value) {
    return TimeText(value) + "/" + std::to_string(static_cast<std::uint64_t>(value));
  };
  return DescribeTask(job) + Entry("Dependents", std::to_string(job.Dependents), "),") +
         Entry("Failures", std::to_string(job.Failures), "),") + Entry("Killed", std::to_string(job.Killed), ")") +
         Entry("SuccessFlag", Word(job.SuccessFlag), ")") + Entry("Retry", Word(job.Retry), ")") +
         Entry("Pid", std::to_string(job.Pid), "),") + Entry("Lite", Word(job.Lite), ")") +
         Entry("RemoteJob", std::to_string(job.RemoteJob), "),") +
         Entry("CreatorJob", std::to_string(job.CreatorJob), "),") + Entry("Handle", std::to_string(job.Handle), "),") +
         Entry("TempDir", job.TempDir, "),") + Entry("OutFile", job.OutFile, "),") +
         Entry("Env", job.Installed->Env, "),") + Entry("BinPath", job.Installed->BinPath, "),") +
         Entry("SentFileSize", ListText(job.SentFileSize, size), "),") +
         Entry("SentFileDate", ListText(job.SentFileDate, date), ")");
}

}  // namespace tlm
