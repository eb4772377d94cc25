// Virtual tables and type information as programs of the Microsoft compilers read them on 32-bit
// x86. Their runtime takes two descriptors for one type when the names are equal, so that the
// application's copies and ours may differ in address.
#pragma once

#include <cstdint>

// What typeid yields. Not constant: the runtime keeps the readable name here once it was asked for.
struct MsvcTypeDescriptor {
  const void* vtable;  // the slots of std::type_info's
  char* readable_name;
  char name[24];
};

struct MsvcClassHierarchy;

// Where a base class lies in an object.
struct MsvcBaseClass {
  static constexpr std::uint32_t kHasHierarchy = 0x40;

  const MsvcTypeDescriptor* type;
  std::uint32_t base_count;
  std::int32_t offset;
  std::int32_t virtual_base_table;  // -1: none
  std::int32_t virtual_base_entry;
  std::uint32_t attributes;
  const MsvcClassHierarchy* hierarchy;
};

// A class and all its bases; the class itself is the first of them.
struct MsvcClassHierarchy {
  std::uint32_t signature;
  std::uint32_t attributes;
  std::uint32_t base_count;
  const MsvcBaseClass* const* bases;
};

struct MsvcObjectLocator {
  std::uint32_t signature;
  std::uint32_t vtable_offset;  // from the start of the object
  std::uint32_t constructor_offset;
  const MsvcTypeDescriptor* type;
  const MsvcClassHierarchy* hierarchy;
};

// Everything about a class without bases.
struct MsvcRootClass {
  constexpr explicit MsvcRootClass(const MsvcTypeDescriptor* type)
      : self{type, 0, 0, -1, 0, MsvcBaseClass::kHasHierarchy, &hierarchy},
        bases{&self},
        hierarchy{0, 0, 1, bases},
        locator{0, 0, 0, type, &hierarchy} {}
  MsvcRootClass(const MsvcRootClass&) = delete;
  MsvcRootClass& operator=(const MsvcRootClass&) = delete;

  MsvcBaseClass self;
  const MsvcBaseClass* bases[1];
  MsvcClassHierarchy hierarchy;
  MsvcObjectLocator locator;
};

// What the one slot of these classes does with an object.
enum MsvcDeleteFlag : std::uint32_t {
  kMsvcFree = 1,       // give the memory back too
  kMsvcArray = 2,      // the first of several objects; their number stands in front of it
  kMsvcGlobalFree = 4  // give it back to the global delete; these classes have no other
};

// Returns the start of the memory.
using MsvcDeletingDestructor = void*(__attribute__((thiscall)) *)(void* object,
                                                                  std::uint32_t flags);

// An object points to the slot, not to the locator in front of it.
struct MsvcVtable {
  const MsvcObjectLocator* locator;
  MsvcDeletingDestructor deleting_destructor;
};
