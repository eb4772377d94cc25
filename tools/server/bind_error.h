#pragma once

// Why the system refuses an address to a listener.
enum class BindError { kInUse, kNotLocal, kNotPermitted, kOther };

// What this thread's last call on a socket, which failed, ended with.
BindError GetLastBindError();
