#pragma once

#include <cstdint>
#include <string>

class CMyThread;

// All lines that the engine's threads write, through the object given. Their levels, source names
// and line numbers are part of the lines' format and do not move with the code.
namespace EngineLog {

// The engine.
void LinkThreadNotStarted(CMyThread* log, std::int32_t threads, const std::string& link_name);
void ClosedByRequest(CMyThread* log, const std::string& remote);

// The listener and the connector.
void AcceptFailed(CMyThread* log);
void BeginConnectFailed(CMyThread* log);

// A link's receive thread.
void SendThreadNotStarted(CMyThread* log, std::int32_t threads, const std::string& link_name);
void LinkWithoutThread(CMyThread* log, const std::string& remote);
void RecvThrottled(CMyThread* log, std::int32_t wait_ms, const std::string& remote);
void RecvCount(CMyThread* log, std::int32_t packages, const std::string& remote);
void PkgTooBig(CMyThread* log, const std::string& remote);
void PkgLenGrew(CMyThread* log, const std::string& remote);
void ProtocolError(CMyThread* log, const std::string& remote);
void RecvTimeout(CMyThread* log, const std::string& remote);

// A link's send thread.
void ClosedAfterSending(CMyThread* log, const std::string& remote);
void ClosedWhenIdle(CMyThread* log, const std::string& remote);
void SendFailed(CMyThread* log, const std::string& remote);

}  // namespace EngineLog
