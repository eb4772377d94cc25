// The cases of the application that is linked with the import library.
#pragma once

#include "client/clientdatasource.h"
#include "tests/msvc_abi/app.h"

// Starts a client that links to the server of the command line, without notifications.
int StartClient(CClientDataSource* client, const Arguments& arguments);

void TestObjects(const Arguments& arguments);
void TestDerivedClasses(const Arguments& arguments);
void TestTypeInformation();
void TestMembers(const Arguments& arguments);

// Leaves a client that runs and that no member reaches any more.
void LeaveForgottenClient(const Arguments& arguments);
