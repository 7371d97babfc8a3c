// The least that speaks the same chunks: a server that stores a file and gives it back, with no lock, no job and no
// check.
#pragma once

#include <filesystem>
#include <string>

#include "connection.h"

namespace tlm::bench {

inline constexpr std::size_t kChunk = 4096;         // bytes of a file in each piece of it that is sent
inline constexpr std::size_t kChunksInRecord = 64;  // some of these fit into the processor's cache

// A record of so many chunks, each of them filled from the text, and the same without content.
std::string ChunkRecord(std::string_view content);

// Serves PutFiles, and RequestResults, which it answers with the source, under the given name. The source is a whole
// number of records long.
void ServePlainTransfers(const Listener& listener, const std::filesystem::path& source, const std::string& destination);

}  // namespace tlm::bench
