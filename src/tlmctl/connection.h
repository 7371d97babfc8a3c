// Reaching a server.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "jm/qorjmclient.h"
#include "tlmctl/exit_code.h"
#include "tlmctl/settings.h"

namespace tlm::ctl {

struct ServerAddress {
  std::string Host;
  std::uint16_t Port;
  std::string Text() const { return Host + ':' + std::to_string(Port); }
};

// Throws Failure if the setting names no server.
ServerAddress AddressOf(const Settings& settings);

// Throws Failure if the server cannot be reached within the time that the settings give, or does not answer a first
// call within the patience beyond it, else 10 seconds.
void Connect(QorJMClient& client, const Settings& settings);
void Connect(QorJMClient& client, const Settings& settings, std::chrono::seconds patience);

// Says who is calling; without that the server gives neither jobs nor output. True if the server has programs of the
// release that the settings name, so that it takes jobs.
bool SayHello(QorJMClient& client, const Settings& settings);

// Both. Throws Failure also if the server takes no job of this client.
void ConnectForJobs(QorJMClient& client, const Settings& settings);

// For a change that the server has not made, though it could understand it.
Failure RefusedChange();

// How long the server takes for a call that does nothing, in milliseconds.
double MeasureNullCall(QorJMClient& client);

// A one-way call that is still on its way when the connection ends might not arrive: returns when all have.
void AwaitArrival(QorJMClient& client);

}  // namespace tlm::ctl
