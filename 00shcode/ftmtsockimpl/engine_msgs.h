// Messages and timers of the engine's threads.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "00shcode/ftmsgq/typed_msg.h"
#include "00shcode/ftmtsockimpl/link_info.h"
#include "00shcode/ftmtsockimpl/link_orders.h"
#include "00shcode/mytoolkit/buffer.h"

constexpr std::uint32_t FTMSG_GET_HEARTBEAT = 102;
constexpr std::uint32_t FTMSG_LINK_CLOSED = 103;
constexpr std::uint32_t FTMSG_RECV_PKG = 104;
constexpr std::uint32_t FTMSG_CONNECT_FAILED = 105;
constexpr std::uint32_t FTMSG_LINK_UP = 106;
constexpr std::uint32_t FTMSG_SETUP_FAILED = 107;
constexpr std::uint32_t FTMSG_SEND_SPACE = 108;
constexpr std::uint32_t FTMSG_CONNECT = 132;
constexpr std::uint32_t FTMSG_ADD_LINK = 134;
constexpr std::uint32_t FTMSG_ADD_LISTEN = 137;
constexpr std::uint32_t FTMSG_CLOSE_LINK = 139;
constexpr std::uint32_t FTMSG_REAP_LINK = 140;
constexpr std::uint32_t FTMSG_LINK_FINISHED = 141;

// To the protocol object, under the link's id: the link and its listening entry, if it has one.
using FTLinkUpMsg =
    FTTypedMsg<FTMSG_LINK_UP, std::unique_ptr<FTLinkInfo>, std::unique_ptr<FTLinkInfo>>;

// To the protocol object, under the link's id, in event mode kByMessage. They only refer to the
// link's record (const FTLinkInfo*). The message that the link is closed is the last one under this
// key, and holds the record until it is handled.
using FTRecvPkgMsg = FTTypedMsg<FTMSG_RECV_PKG, const FTLinkInfo*, FTBufferPtr>;
using FTGetHeartbeatMsg = FTTypedMsg<FTMSG_GET_HEARTBEAT, const FTLinkInfo*>;
using FTSendSpaceMsg = FTTypedMsg<FTMSG_SEND_SPACE, const FTLinkInfo*, std::int32_t, std::int32_t>;
using FTLinkClosedMsg =
    FTTypedMsg<FTMSG_LINK_CLOSED, std::unique_ptr<FTLinkInfo>, FTCloseReason, FTLinkRecord>;

// To the protocol object, about links that did not come about.
using FTConnectFailedMsg = FTTypedMsg<FTMSG_CONNECT_FAILED, std::unique_ptr<FTLinkInfo>>;
using FTSetupFailedMsg = FTTypedMsg<FTMSG_SETUP_FAILED, std::unique_ptr<FTLinkReq>>;

// To the engine's threads.
using FTConnectMsg = FTTypedMsg<FTMSG_CONNECT, std::unique_ptr<FTLinkInfo>>;  // to the connector
using FTAddLinkMsg = FTTypedMsg<FTMSG_ADD_LINK, FTLinkReqPtr>;                // to the engine
using FTAddListenMsg = FTTypedMsg<FTMSG_ADD_LISTEN, FTListenerPtr>;           // to the listener
// To the engine: the link's receive thread has done all but return. The record, which the message
// holds, tells the link from a later one with the same id.
using FTLinkFinishedMsg = FTTypedMsg<FTMSG_LINK_FINISHED, FTLinkRecord>;
// To the listener, which passes it on to the connector, which passes it on to the engine.
using FTCloseLinkMsg = FTTypedMsg<FTMSG_CLOSE_LINK, std::unique_ptr<std::string>, FTCloseMode>;

// Timer ids are a thread's own.
constexpr std::uint32_t TIMER_CONN_SWEEP = 133;
constexpr std::uint32_t TIMER_SEND_CHECK = 170;
constexpr std::uint32_t TIMER_TIDY_BLOCKS = 172;
constexpr std::uint32_t TIMER_RECV_CHECK = 173;
constexpr std::uint32_t TIMER_DUE_CONNECTS = 176;
