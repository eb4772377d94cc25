#include "client/clientdatasource.h"

int main() {
  CClientDataSource client;
  return client.IsOnline();
}
