#include "tests/msvc_abi/linked_cases.h"
#include "tests/msvc_abi/system.h"

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

void TestTypeOf(CClientDataSource* plain, CClientDataSource* account) {
  const type_info& type = typeid(*plain);
  Check(type == typeid(CClientDataSource), "typeid: of the class");
  Check(!(type == typeid(Account)), "typeid: of the class is of no other");
  Check(typeid(*account) == typeid(Account), "typeid: of a derived class");
  CheckEqual(strcmp(type.name(), "class CClientDataSource"), 0, "typeid: the name");
  CheckEqual(strcmp(typeid(type).name(), "class type_info"), 0, "typeid: of a type_info");
}

void TestCasts(CClientDataSource* plain, CClientDataSource* account) {
  Check(dynamic_cast<Account*>(plain) == nullptr, "dynamic_cast: not to a derived class");
  Check(dynamic_cast<Named*>(plain) == nullptr, "dynamic_cast: not to a strange class");
  Check(dynamic_cast<void*>(plain) == plain, "dynamic_cast: to the whole object");
  Check(dynamic_cast<Account*>(account) == account, "dynamic_cast: down");
  NamedClient named;
  auto* const second_base = Forget<CClientDataSource>(&named);
  auto* const first_base = Forget<Named>(&named);
  Check(dynamic_cast<NamedClient*>(second_base) == &named, "dynamic_cast: down from a second base");
  Check(dynamic_cast<CClientDataSource*>(first_base) == second_base, "dynamic_cast: across");
  Check(dynamic_cast<Account*>(second_base) == nullptr, "dynamic_cast: not to a cousin");
}

// The records in front of a table. Not every runtime reads all that is in them.
struct Class;
struct Hierarchy {
  unsigned signature, attributes, base_count;
  const Class* const* bases;
};
struct Class {
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

const Locator& LocatorOf(const void* object) {
  return *(*static_cast<const Locator* const* const*>(object))[-1];
}

// Those of the library against what this application's own compiler wrote of the same class.
void TestRecords(const CClientDataSource* plain, const CClientDataSource* account) {
  const Locator& locator = LocatorOf(plain);
  const Hierarchy& hierarchy = *locator.hierarchy;
  const Class& self = *hierarchy.bases[0];
  const Class& expected = *LocatorOf(account).hierarchy->bases[1];
  CheckEqual(memcmp(&locator, &LocatorOf(account), 3 * sizeof(int)), 0, "records: the locator");
  CheckEqual(memcmp(&hierarchy, expected.hierarchy, 3 * sizeof(int)), 0, "records: no bases");
  CheckEqual(memcmp(&self.base_count, &expected.base_count, 5 * sizeof(int)), 0,
             "records: the class is its own first base");
  Check(self.type == locator.type && self.hierarchy == &hierarchy, "records: belong together");
}

}  // namespace

void TestTypeInformation() {
  CClientDataSource object;
  Account derived;
  auto* const plain = Forget(&object);
  auto* const account = Forget<CClientDataSource>(&derived);
  TestTypeOf(plain, account);
  TestCasts(plain, account);
  TestRecords(plain, account);
}
