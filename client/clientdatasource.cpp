#include "client/clientdatasource.h"

#include <climits>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "00shcode/mytoolkit/buffer.h"
#include "client/balance_query.h"
#include "client/client_slot.h"
#include "client/comm_thread.h"

namespace {

ServerEntry MakeEntry(const char* host, int port) {
  return {host == nullptr ? std::string() : host, port};
}

}  // namespace

CClientDataSource::CClientDataSource() {
  g_pClientCommThread = nullptr;
}

CClientDataSource::CClientDataSource(const CClientDataSource&) {}

CClientDataSource& CClientDataSource::operator=(const CClientDataSource&) {
  return *this;
}

CClientDataSource::~CClientDataSource() {
  ft::TearDownClient();
}

int CClientDataSource::Link(const char* host1, int port1, const char* host2, int port2,
                            const char* host3, int port3, const char* host4, int port4,
                            const char* host5, int port5, unsigned int window,
                            unsigned int message) {
  if (g_pClientCommThread != nullptr) return 0;
  auto client = std::make_unique<CClientCommThread>();
  client->SetRecvWnd(window, message);
  client->SetServers({MakeEntry(host1, port1), MakeEntry(host2, port2), MakeEntry(host3, port3),
                      MakeEntry(host4, port4), MakeEntry(host5, port5)});
  // In the slot before it runs: who takes its first notification may ask it something.
  g_pClientCommThread = client.get();
  try {
    client->StartThread(0);
  } catch (...) {  // naming a type of the runtime would have the DLL export it
    g_pClientCommThread = nullptr;
    throw;
  }
  client.release();
  return 1;
}

int CClientDataSource::UnLink() {
  ft::TearDownClient();
  return 0;
}

int CClientDataSource::IsOnline() {
  return g_pClientCommThread == nullptr ? 0 : g_pClientCommThread->IsOnline();
}

int CClientDataSource::AskData(const char* data, unsigned int length) {
  if (g_pClientCommThread == nullptr) return 0;
  if (length > INT_MAX) return -1;
  return g_pClientCommThread->SendRequest(data, static_cast<std::int32_t>(length));
}

void CClientDataSource::ChangeReceieveWnd(unsigned int window, unsigned int message) {
  if (g_pClientCommThread != nullptr) g_pClientCommThread->SetRecvWnd(window, message);
}

void CClientDataSource::FreeBuffer(char* buffer) {
  ft::FreeBody(buffer);
}

int CClientDataSource::GetBalanceServer(char* host, int port, char question, char** answer) {
  return ft::QueryBalanceServer(host, port, question, answer);
}
