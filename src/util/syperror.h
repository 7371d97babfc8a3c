// Complaints to the person at the console, as framed messages on standard error, and a list of exit functions.
#pragma once

namespace tlm {

// What a function says of a null pointer or a bad size among its arguments before it gives its failure value.
inline constexpr char kArgumentFailure[] = "Returned on Assertion Failure:\n";

// "File %s, Line %d". The text lasts until this thread's next call.
const char* sypWhere(const char* source, int line);

// Prints the message, made in the manner of printf, in the frame; what goes beyond 1023 bytes of it is lost. The frame
// shows the message only, not the place. Messages of several threads do not mix.
[[gnu::format(printf, 2, 3)]] void sypWarning(const char* where, const char* format, ...);

// Says which expression failed and ends the program with status 1. Without a text, pass "See source listing".
[[noreturn]] void sypAssertFailed(const char* where, const char* expression);

// Has the function called at the end of the program; the last one added is called first. 0, or 1 for a null pointer or
// beyond 1024 functions. For one thread at a time.
int sypAtExit(void (*function)());

// Width of the frame in characters, the line prefix included; 70 at first. 1, or 0 for a width outside 11 to 1000.
int sypSetMessageWidth(int width);

}  // namespace tlm
