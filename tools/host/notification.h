#pragma once

#include <cstdint>
#include <string>

#include "client/clientdatasource.h"

// What the library tells its host: a package or a link event.
struct Notification {
  std::intptr_t link_event = 0;  // one of FTLinkEvent; 0: a package
  std::string body;

  bool IsPackage() const { return link_event == 0; }
};

// Takes the notification out of its message; the client releases the body.
Notification TakeNotification(CClientDataSource* client, std::uintptr_t w_param,
                              std::intptr_t l_param);

// The name of a link event.
std::string ShowLinkEvent(std::intptr_t link_event);
