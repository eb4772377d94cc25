// CClientDataSource for applications of the Microsoft compilers.
//
// Its members serve both compilers as they are, since the object is passed in the same register and
// never read. Only what makes and unmakes objects differs: in the virtual table that an object
// points to, and in what is returned. The functions here do what the class's own constructors and
// destructor do and leave an object that points to a table as the application's compiler expects
// it. ftclient_msvc.def exports all of them under that compiler's names.
#pragma once

#include <cstdint>

#define FT_THISCALL __attribute__((thiscall))

extern "C" {

void* FT_THISCALL FTMsvcConstruct(void* object);
void* FT_THISCALL FTMsvcCopy(void* object, const void* other);
void FT_THISCALL FTMsvcDestroy(void* object);

// The slot of the virtual table: destroys one object or an array and frees its memory, as the flags
// (MsvcDeleteFlag) say. That memory came from the application's operator new: it is freed where
// that took it from the process's heap as it is, and stays allocated otherwise.
void* FT_THISCALL FTMsvcDelete(void* object, std::uint32_t flags);

}  // extern "C"
