// Ownership of the library's records, and its failures as exceptions.
#ifndef ZEBZ_LIBRARY_RECORD_H
#define ZEBZ_LIBRARY_RECORD_H

#include <zebdc/zebdc.h>

#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

namespace zebz {

struct FreeLZ77State {
  void operator()(ZebLZ77State_8u* state) const { zebsLZ77Free_8u(state); }
};
using LZ77State = std::unique_ptr<ZebLZ77State_8u, FreeLZ77State>;

// For calls whose arguments make every error impossible but the want of memory. Returns the status:
// zebOk or a warning.
inline ZebStatus expectNoError(ZebStatus status) {
  if (status == zebErrMemAlloc) throw std::bad_alloc();
  if (status < 0) throw std::logic_error("unexpected library status " + std::to_string(status));
  return status;
}

// A record that an InitAlloc function makes: make(&record) is called, Owner takes it.
template <class Owner, class Make>
Owner makeRecord(Make make) {
  typename Owner::pointer record = nullptr;
  expectNoError(make(&record));
  return Owner(record);
}

// Memory for a record that an Init function builds in place, aligned as the library may expect.
template <class Record>
class RecordMemory {
 public:
  explicit RecordMemory(size_t size) : units_(size / sizeof(Unit) + 1) {}
  Record* get() { return reinterpret_cast<Record*>(units_.data()); }

 private:
  struct alignas(16) Unit {
    uint8_t bytes[16];
  };
  std::vector<Unit> units_;
};

}  // namespace zebz

#endif
