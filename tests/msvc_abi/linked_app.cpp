// An application that imports the class through its import library.
#include "tests/msvc_abi/cases.h"

int StartClient(CClientDataSource* client, const Arguments& arguments) {
  return client->Link(arguments.host, arguments.port, "", 0, "", 0, "", 0, "", 0, 0, 0);
}

void RunCases(const Arguments& arguments) {
  TestObjects(arguments);
  TestDerivedClasses(arguments);
  TestTypeInformation();
  TestMembers(arguments);
  LeaveForgottenClient(arguments);
}
