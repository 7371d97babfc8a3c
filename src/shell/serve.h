// The serving stage of the process.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

namespace tlm {

// Reads the settings. To be called once, before Serve and when the runtime identity is final.
void PrepareServer();

// To be called before Serve: while the loop makes passes, `beat` runs in each interval.
void SetHeartbeat(std::chrono::microseconds interval, std::function<void()> beat);

// Listens at the port and serves until Shutdown. What keeps it from serving, a port that is taken for instance, is told
// in a line on standard output. False if settings cannot be understood, which is told on standard error.
bool Serve(std::uint16_t port);

// Stops the server of this machine that listens at the port. False if there is none.
bool StopLocalServer(std::uint16_t port);

// Stops what Serve has begun at the port, and no other server there. False if it is to be tried again: Serve may not
// listen yet. Any thread.
bool StopServing(std::uint16_t port);

// Removes from the temporary root what servers have left there.
void CleanUp();

}  // namespace tlm
