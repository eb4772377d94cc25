#include "tools/host/notification.h"

#include <cstddef>

Notification TakeNotification(CClientDataSource* client, std::uintptr_t w_param,
                              std::intptr_t l_param) {
  if (w_param == 0) return {l_param, {}};
  auto* const body = reinterpret_cast<char*>(w_param);
  Notification package{0, std::string(body, static_cast<std::size_t>(l_param))};
  client->FreeBuffer(body);
  return package;
}

std::string ShowLinkEvent(std::intptr_t link_event) {
  switch (link_event) {
    case LINK_EVENT_UP:
      return "LINK_EVENT_UP";
    case LINK_EVENT_CONNECT_FAILED:
      return "LINK_EVENT_CONNECT_FAILED";
    case LINK_EVENT_CLOSED:
      return "LINK_EVENT_CLOSED";
    default:
      return "link event " + std::to_string(link_event);
  }
}
