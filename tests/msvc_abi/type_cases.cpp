#include "tests/msvc_abi/cases.h"
#include "tests/msvc_abi/system.h"
#include "tests/msvc_abi/type_info.h"

// The application's descriptors point to this table, which belongs to the runtime; the compiler
// does not make it. Nobody destroys a type_info.
extern "C" const void* const type_info_table[1] asm("??_7type_info@@6B@") = {nullptr};

namespace {

class Account : public CClientDataSource {};

class Named {
 public:
  virtual ~Named() = default;
};

class NamedClient : public Named, public CClientDataSource {};

// The compiler must not know what the pointer points to.
template <typename T>
T* Forget(T* object) {
  T* volatile forgotten = object;
  return forgotten;
}

void TestTypeOf() {
  CClientDataSource object;
  Account account;
  CClientDataSource* const plain = Forget(&object);
  CClientDataSource* const derived = Forget<CClientDataSource>(&account);
  Check(typeid(*plain) == typeid(CClientDataSource), "typeid: of the class");
  Check(!(typeid(*plain) == typeid(Account)), "typeid: of the class is of no other");
  Check(typeid(*derived) == typeid(Account), "typeid: of a derived class");
  const char* const name = typeid(*plain).name();
  CheckEqual(strcmp(name, "class CClientDataSource"), 0, "typeid: the name");
  Check(typeid(*plain).name() == name, "typeid: the name is kept");
  const type_info& type = typeid(*plain);
  CheckEqual(strcmp(typeid(type).name(), "class type_info"), 0, "typeid: of a type_info");
}

void TestCastOfTheClass() {
  CClientDataSource object;
  CClientDataSource* const plain = Forget(&object);
  Check(dynamic_cast<Account*>(plain) == nullptr, "dynamic_cast: not to a derived class");
  Check(dynamic_cast<Named*>(plain) == nullptr, "dynamic_cast: not to a strange class");
  Check(dynamic_cast<void*>(plain) == plain, "dynamic_cast: to the whole object");
}

void TestCastOfDerived() {
  Account account;
  NamedClient named;
  CClientDataSource* const base = Forget<CClientDataSource>(&account);
  CClientDataSource* const second_base = Forget<CClientDataSource>(&named);
  Named* const first_base = Forget<Named>(&named);
  Check(dynamic_cast<Account*>(base) == &account, "dynamic_cast: down");
  Check(dynamic_cast<NamedClient*>(second_base) == &named, "dynamic_cast: down from a second base");
  Check(dynamic_cast<Named*>(second_base) == first_base, "dynamic_cast: across");
  Check(dynamic_cast<CClientDataSource*>(first_base) == second_base, "dynamic_cast: across, back");
  Check(dynamic_cast<Account*>(second_base) == nullptr, "dynamic_cast: not to a cousin");
}

// The records in front of a table. Not every runtime reads all that is in them.
struct BaseClass;
struct Hierarchy {
  unsigned signature, attributes, base_count;
  const BaseClass* const* bases;
};
struct BaseClass {
  const char* type;
  unsigned base_count;
  int offset, virtual_base_table, virtual_base_entry;
  unsigned attributes;
  const Hierarchy* hierarchy;
};
struct Locator {
  unsigned signature, vtable_offset, constructor_offset;
  const char* type;
  const Hierarchy* hierarchy;
};

constexpr int kNameOffset = 8;

const Locator& LocatorOf(const void* object) {
  return *(*static_cast<const Locator* const* const*>(object))[-1];
}

void TestRecords() {
  CClientDataSource object;
  const Account account;
  const Locator& locator = LocatorOf(&object);
  const Hierarchy& hierarchy = *locator.hierarchy;
  const BaseClass& self = *hierarchy.bases[0];
  // What this application's own compiler wrote of the same class as a base.
  const BaseClass& expected = *LocatorOf(&account).hierarchy->bases[1];
  Check(locator.signature == 0 && locator.vtable_offset == 0 && locator.constructor_offset == 0,
        "records: the table is the object's first");
  CheckEqual(strcmp(locator.type + kNameOffset, expected.type + kNameOffset), 0,
             "records: the name");
  CheckEqual(memcmp(&hierarchy, expected.hierarchy, sizeof(Hierarchy) - sizeof(void*)), 0,
             "records: the class has no bases");
  Check(self.type == locator.type && self.hierarchy == &hierarchy, "records: belong together");
  CheckEqual(memcmp(&self.base_count, &expected.base_count, 5 * sizeof(int)), 0,
             "records: the class is its own first base");
}

}  // namespace

void TestTypeInformation() {
  TestTypeOf();
  TestCastOfTheClass();
  TestCastOfDerived();
  TestRecords();
}
