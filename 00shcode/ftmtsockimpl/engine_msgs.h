// Messages and timers of the engine's threads, and why a link ended.
#pragma once

#include <cstdint>

// To the socket interface, or from a link thread to itself.
constexpr std::uint32_t FTMSG_GET_HEARTBEAT = 102;
constexpr std::uint32_t FTMSG_LINK_CLOSED = 103;
constexpr std::uint32_t FTMSG_RECV_PKG = 104;
constexpr std::uint32_t FTMSG_CONNECT_FAILED = 105;
constexpr std::uint32_t FTMSG_LINK_UP = 106;
constexpr std::uint32_t FTMSG_SETUP_FAILED = 107;
constexpr std::uint32_t FTMSG_SEND_SPACE = 108;

constexpr std::uint32_t FTMSG_CONNECT = 132;     // FTLinkInfo, to the connector
constexpr std::uint32_t FTMSG_ADD_LINK = 134;    // FTLinkReq, to the engine
constexpr std::uint32_t FTMSG_ADD_LISTEN = 137;  // FTLinkInfo, to the listener
// Link id as std::string and after-sending flag; listener, then connector, then engine.
constexpr std::uint32_t FTMSG_CLOSE_LINK = 139;
constexpr std::uint32_t FTMSG_REAP_LINK = 140;  // CFTMtSockOneLinkThrd, to the wait thread

// Timer ids are a thread's own.
constexpr std::uint32_t TIMER_CONN_SWEEP = 133;
constexpr std::uint32_t TIMER_SEND_CHECK = 170;
constexpr std::uint32_t TIMER_REAP_LINKS = 172;
constexpr std::uint32_t TIMER_REAP_CHECK = 172;
constexpr std::uint32_t TIMER_RECV_CHECK = 173;
constexpr std::uint32_t TIMER_DUE_CONNECTS = 176;

constexpr std::int32_t kCloseNone = 0;
constexpr std::int32_t kCloseRecvTimeout = 1;
constexpr std::int32_t kCloseRecvFailed = 2;  // or ended by the peer
constexpr std::int32_t kCloseSendFailed = 4;
constexpr std::int32_t kCloseBadPkg = 5;  // too big, or no package at all
constexpr std::int32_t kCloseOnRequest = 6;
constexpr std::int32_t kCloseUnknown = 7;  // none had been recorded when the thread ended
// The send thread could not be started, or the length of a package grew while it was assembled.
constexpr std::int32_t kCloseNotStarted = 8;
