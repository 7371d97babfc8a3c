// The serving stage of the process.
#pragma once

#include <cstdint>

namespace tlm {

// Reads the settings. To be called once, before Serve and when the runtime identity is final.
void PrepareServer();

// Listens at the port and serves until Shutdown. What keeps it from serving, a port that is taken for instance, is told
// in a line on standard output.
void Serve(std::uint16_t port);

// Stops the server of this machine that listens at the port. False if there is none.
bool StopLocalServer(std::uint16_t port);

// Stops what Serve has begun at the port, and no other server there. False if it is to be tried again: Serve may not
// listen yet. Any thread.
bool StopServing(std::uint16_t port);

// Removes from the temporary root what servers have left there.
void CleanUp();

}  // namespace tlm
