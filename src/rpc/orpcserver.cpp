#include "rpc/orpcserver.h"

#include <map>

#include "util/mmutex.h"

namespace tlm {

namespace {

// Made on first use, so that an initialiser of any source may register.
struct Registry {
  MMutex Lock;
  std::map<ORpcProgramKey, ORpcServerFactory> Factories GUARDED_BY(Lock);
};

Registry& TheRegistry() {
  static Registry registry;
  return registry;
}

}  // namespace

void RegisterServerFactory(ORpcProgramKey key, ORpcServerFactory factory) {
  Registry& registry = TheRegistry();
  const MAutoLock lock(registry.Lock);
  registry.Factories[key] = std::move(factory);
}

std::shared_ptr<ORpcServer> CreateServer(ORpcProgramKey key) {
  Registry& registry = TheRegistry();
  const MAutoLock lock(registry.Lock);
  const auto found = registry.Factories.find(key);
  return found == registry.Factories.end() ? nullptr : found->second();
}

}  // namespace tlm
