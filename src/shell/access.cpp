#include "shell/access.h"

#include <charconv>
#include <filesystem>
#include <limits>
#include <optional>
#include <sstream>

#include "libtsenv/product_environment.h"
#include "libtsenv/runtime_identity.h"
#include "platform/file_system.h"
#include "platform/socket.h"

namespace tlm {

namespace {

constexpr int kMebibyte = 20;  // bits
constexpr std::size_t kLongestValue = 255;
constexpr std::uint32_t kUsualJobLogSize = 10;  // mebibytes

// Whoever writes to one may have to wait for who reads.
bool IsPipe(const std::string& path) {
  std::error_code error;
  const auto type = std::filesystem::status(path, error).type();
  return type == std::filesystem::file_type::fifo || type == std::filesystem::file_type::socket;
}

// Of settings that the product's prefix begins, as in TSQOR_LISTEN.
class Reader {
 public:
  explicit Reader(std::vector<std::string>& faults) : faults_(faults) {}

  bool Flag(const char* name) { return Count(name) != 0; }

  std::uint32_t Address(const char* name) {
    const auto text = ValueOf(name);
    if (!text) return 0;
    const auto address = ParsePlainAddress(*text);
    if (!address) Refuse(name, *text, "is no IPv4 address");
    return address.value_or(0);
  }

  std::vector<AddressRange> Ranges(const char* name) {
    std::vector<AddressRange> ranges;
    // So does one look that is too long for the registry.
    if (ProductValue(NameOf(name).c_str()) == "") Refuse(name, "an empty list", "would let everybody in");
    std::istringstream words(ValueOf(name).value_or(""));
    for (std::string word; std::getline(words, word, ',');) {
      word.erase(0, word.find_first_not_of(' '));
      word.erase(word.find_last_not_of(' ') + 1);
      if (const auto range = AddressRange::Parse(word)) {
        ranges.push_back(*range);
      } else {
        Refuse(name, word, "is no range of addresses such as 10.1.0.0/16");
      }
    }
    return ranges;
  }

  std::vector<std::string> Directories(const char* name) {
    std::vector<std::string> directories;
    std::istringstream words(ValueOf(name).value_or(""));
    for (std::string word; std::getline(words, word, ':');) {
      if (!word.starts_with('/')) Refuse(name, word, "is no absolute path");
      while (word.size() > 1 && word.ends_with('/')) word.pop_back();
      directories.push_back(word);
    }
    return directories;
  }

  // Of a file that may not be there yet.
  std::string File(const char* name) {
    std::string path = ValueOf(name).value_or("");
    platform::FileStatus status;
    if (path.empty()) return path;
    if (!path.starts_with('/')) {
      Refuse(name, path, "is no absolute path");
    } else if (platform::GetFileStatus(path.substr(0, path.rfind('/') + 1), status) != 0 ||
               (platform::GetFileStatus(path, status) == 0 && (status.IsDirectory || IsPipe(path)))) {
      Refuse(name, path, "is no file in a directory that is there");
    }
    return path;
  }

  std::uint32_t Mebibytes(const char* name) {
    const std::uint32_t count = Count(name);
    if (count > (std::numeric_limits<std::uint32_t>::max() >> kMebibyte))
      Refuse(name, std::to_string(count), "is too large");
    return count << kMebibyte;
  }

  std::uint32_t Count(const char* name) {
    const auto text = ValueOf(name);
    std::uint32_t count = 0;
    if (!text) return count;
    const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), count);
    if (error != std::errc() || end != text->data() + text->size()) Refuse(name, *text, "is no number");
    return count;
  }

 private:
  static std::string NameOf(const char* name) { return Identity().RUNTIME_JM_ENVIRONMENT + '_' + name; }
  // What is cut off in a file could open what was to be closed.
  std::optional<std::string> ValueOf(const char* name) {
    auto value = ProductValue(NameOf(name).c_str());
    if (value && value->size() >= kLongestValue) Refuse(name, "a value of this length", "may have been cut off");
    return value && value->empty() ? std::nullopt : value;
  }
  void Refuse(const char* name, const std::string& value, const char* fault) {
    faults_.push_back(NameOf(name) + ": " + value + ' ' + fault);
  }

  std::vector<std::string>& faults_;
};

}  // namespace

Access ReadAccess() {
  Access access;
  Reader reader(access.Faults);
  access.Listen = reader.Address("LISTEN");
  access.Admission.Ranges = reader.Ranges("ALLOW");
  // Programs of jobs report from this machine.
  if (!access.Admission.Ranges.empty()) access.Admission.Ranges.push_back(*AddressRange::Parse("127.0.0.0/8"));
  access.Admission.MostConnections = reader.Count("MAX_CONNECTIONS");
  access.Admission.FirstCall = std::chrono::seconds(reader.Count("FIRST_CALL_LIMIT"));
  access.Admission.LongestRecord = reader.Mebibytes("RECORD_LIMIT");
  access.Admission.Silence = std::chrono::seconds(reader.Count("SILENCE_LIMIT"));
  access.Restrictions.LocalAdministration = reader.Flag("LOCAL_ADMIN");
  access.Restrictions.NoLoaderVariables = reader.Flag("NO_LOADER_VARIABLES");
  access.Restrictions.Confined = reader.Flag("CONFINE");
  access.Restrictions.ExtraRoots = reader.Directories("CONFINE_ROOTS");
  access.Restrictions.LongestCallback = std::chrono::seconds(reader.Count("CALLBACK_LIMIT"));
  access.Restrictions.LongestRun = std::chrono::seconds(reader.Count("LONGEST_RUN"));
  access.Restrictions.LeastRoom = std::uint64_t{reader.Count("FREE_DISK")} << kMebibyte;
  access.JobLog = reader.File("JOB_LOG");
  const std::uint32_t size = reader.Count("JOB_LOG_SIZE");
  access.JobLogSize = std::uint64_t{size == 0 ? kUsualJobLogSize : size} << kMebibyte;
  return access;
}

std::vector<std::string> DescribeAccess(const Access& access, std::uint16_t port, const std::string& user) {
  const std::string address = platform::FormatAddress(access.Listen) + ':' + std::to_string(port);
  std::vector<std::string> lines{"Listening on " + address + " as " + user +
                                 ": whoever reaches it can run commands as that user"};
  const std::string name = Identity().RUNTIME_JM_ENVIRONMENT;
  if (user == "root") lines.push_back("WARNING: that is the user who may do anything");
  if (!IsLoopback(access.Listen) && access.Admission.Ranges.empty()) {
    lines.push_back("WARNING: every address is let in; " + name + "_LISTEN and " + name + "_ALLOW change that");
  }
  return lines;
}

}  // namespace tlm
