// The serving stage of the process.
#pragma once

namespace tlm {

// Reads the settings. To be called once, before Serve and when the runtime identity is final.
void PrepareServer();

// Listens and serves until Shutdown. What keeps it from serving, a port that is taken for instance, is told in a line
// on standard output.
void Serve();

// Stops the server of this machine that has the port of this process's settings. False if there is none.
bool StopLocalServer();

// Removes from the temporary root what servers have left there.
void CleanUp();

}  // namespace tlm
