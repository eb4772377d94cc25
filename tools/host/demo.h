#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "client/clientdatasource.h"
#include "tools/host/host_window.h"
#include "tools/server/dev_server.h"

// The life of a client in steps: link, request, pushed packages, loss of the server, the next
// server, balance query. Prints each step. One per process.
class Demo {
 public:
  // Blocks for a handful of seconds. False when a step did not happen; it is named then.
  bool Run();

 private:
  void RunSteps();
  void Step(const std::string& title, const std::function<void()>& act);

  void StartServers();
  void LinkToServers();
  void Ask(const std::string& question);
  void TakePushedPackages();
  void TakeServerAway();
  void AwaitNextServer();
  void EndClient();
  void AskForBalance();

  // The next notification for which wanted is true; throws when none comes within the limit.
  Notification Await(const std::string& what,
                     const std::function<bool(const Notification&)>& wanted);
  void AwaitLinkEvent(std::intptr_t link_event);

  CClientDataSource m_client;
  HostWindow m_window{&m_client};
  std::optional<DevServer> m_server_a;
  std::optional<DevServer> m_server_b;
  int m_step = 0;
  std::string m_title;
  FTTime m_step_start;
};
