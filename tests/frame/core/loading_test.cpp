// The library as the loader brings it into a program that was not linked with it: every name of the
// export list is found, nothing else, and the choice of the variant is made when it comes.
//
// The program carries a core library that notes its calls, or has one beside it.

#include <gtest/gtest.h>
#include <zebdc/zebdc.h>

#include <string>
#include <vector>

#include "recording_core.h"

#if defined(_WIN32)
#define WIN32_LEAN_AND_MEAN
#include <windows.h>
#else
#include <dlfcn.h>
#endif

namespace {

#if defined(_WIN32)

class Library {
 public:
  Library() : module_(LoadLibraryA(ZEBDC_TEST_LIBRARY)) {}
  ~Library() {
    if (module_ != nullptr) FreeLibrary(module_);
  }
  bool isLoaded() const { return module_ != nullptr; }
  void* find(const char* name) const {
    return reinterpret_cast<void*>(GetProcAddress(module_, name));
  }

  const uint8_t* image() const { return reinterpret_cast<const uint8_t*>(module_); }
  const IMAGE_NT_HEADERS64& headers() const {
    const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(image());
    return *reinterpret_cast<const IMAGE_NT_HEADERS64*>(image() + dos->e_lfanew);
  }

  // The entry point, as the loader calls it.
  BOOL notify(DWORD reason) const {
    using EntryPoint = BOOL(WINAPI*)(HMODULE, DWORD, void*);
    const auto entry =
        reinterpret_cast<EntryPoint>(image() + headers().OptionalHeader.AddressOfEntryPoint);
    return entry(module_, reason, nullptr);
  }

 private:
  HMODULE module_;
};

#else

class Library {
 public:
  Library() : handle_(dlopen(ZEBDC_TEST_LIBRARY, RTLD_NOW | RTLD_LOCAL)) {}
  ~Library() {
    if (handle_ != nullptr) dlclose(handle_);
  }
  bool isLoaded() const { return handle_ != nullptr; }
  void* find(const char* name) const { return dlsym(handle_, name); }

 private:
  void* handle_;
};

#endif

const std::vector<const char*> exportedNames = {
#define ZEBDC_EXPORT(name) #name,
#define ZEBDC_EXPORT_PER_VARIANT(name) #name,
#include "frame/exports.inc"
#undef ZEBDC_EXPORT
#undef ZEBDC_EXPORT_PER_VARIANT
};

TEST(Loading, EveryListedNameIsFound) {
  const Library library;
  ASSERT_TRUE(library.isLoaded());
  ASSERT_EQ(exportedNames.size(), 129u);
  for (const char* const name : exportedNames) EXPECT_NE(library.find(name), nullptr) << name;
}

TEST(Loading, InternalNamesAreNotFound) {
  const Library library;
  for (const char* const name :
       {"zebdcVariantIndex", "zebdcEntry_zebsCRC32_8u", "zebdcTable_zebsCRC32_8u", "DllMain",
        "zebsCRC32_8u@12", "_zebsCRC32_8u"}) {
    EXPECT_EQ(library.find(name), nullptr) << name;
  }
}

TEST(Loading, FunctionsFoundByNameWork) {
  const Library library;
  const auto crc32 = reinterpret_cast<decltype(&zebsCRC32_8u)>(library.find("zebsCRC32_8u"));
  ASSERT_NE(crc32, nullptr);
  uint32_t crc = 0;
  EXPECT_EQ(crc32(reinterpret_cast<const uint8_t*>("123456789"), 9, &crc), zebOk);
  EXPECT_EQ(crc, 0xCBF43926u);
}

TEST(Loading, TheMaskIsAskedForOncePerLoad) {
  const int before = recordingCore()->featureCalls;
  for (const int loads : {1, 2, 3}) {
    const Library library;
    ASSERT_TRUE(library.isLoaded());
    EXPECT_EQ(recordingCore()->featureCalls, before + loads);
  }
}

#if defined(_WIN32)

TEST(WindowsLoading, NothingElseIsExported) {
  const Library library;
  const IMAGE_DATA_DIRECTORY& place =
      library.headers().OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
  const auto& exports =
      *reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(library.image() + place.VirtualAddress);
  EXPECT_EQ(exports.NumberOfNames, exportedNames.size());
  EXPECT_EQ(exports.NumberOfFunctions, exportedNames.size());
  EXPECT_STREQ(reinterpret_cast<const char*>(library.image() + exports.Name), "zebdct7-8.2.dll");
}

TEST(WindowsLoading, TheEntryPointSucceedsForEveryReasonAndChoosesForOneOnly) {
  const Library library;
  const int before = recordingCore()->featureCalls;
  for (const DWORD reason : {static_cast<DWORD>(DLL_THREAD_ATTACH),
                             static_cast<DWORD>(DLL_THREAD_DETACH), DWORD{4}, DWORD{0xFFFFFFFF}}) {
    EXPECT_NE(library.notify(reason), 0) << reason;
  }
  EXPECT_EQ(recordingCore()->featureCalls, before);
}

#endif

}  // namespace
