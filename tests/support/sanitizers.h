// Whether the tests run under AddressSanitizer, under which everything is slow: tests of many cases
// of the same kind then take some of them.
#ifndef ZEBDC_TESTS_SUPPORT_SANITIZERS_H
#define ZEBDC_TESTS_SUPPORT_SANITIZERS_H

#if defined(__SANITIZE_ADDRESS__)
#define ZEBDC_TEST_SANITIZED true
#elif defined(__has_feature)
#define ZEBDC_TEST_SANITIZED __has_feature(address_sanitizer)
#else
#define ZEBDC_TEST_SANITIZED false
#endif

namespace zebdc::test {

inline constexpr bool underSanitizers = ZEBDC_TEST_SANITIZED;

}  // namespace zebdc::test

#undef ZEBDC_TEST_SANITIZED

#endif
