// The serving stage of the process.
#pragma once

namespace tlm {

// Reads the settings. To be called once, before Serve and when the runtime identity is final.
void PrepareServer();

// Listens and serves until Shutdown. Gives the exit code: 1 if the port is taken, with a line on standard output.
int Serve();

}  // namespace tlm
