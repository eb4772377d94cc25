// std::type_info as the compiler and the system's runtime know it.
#pragma once

class type_info {
 public:
  type_info(const type_info&) = delete;
  type_info& operator=(const type_info&) = delete;
  virtual ~type_info();

  __declspec(dllimport) const char* name() const;
  __declspec(dllimport) int operator==(const type_info& other) const;

 private:
  void* m_readable_name;
  char m_name[1];
};
