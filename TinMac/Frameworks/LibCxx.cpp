// The part of Apple's libc++ for the programs that were compiled with its headers, made from those
// very headers, so that every layout is theirs.
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <system_error>

template class std::basic_string<char>;
template std::string std::operator+(const char*, const std::string&);

_LIBCPP_BEGIN_NAMESPACE_STD

// --- Numbers as texts

string to_string(int value) { return to_string(static_cast<long long>(value)); }
string to_string(long value) { return to_string(static_cast<long long>(value)); }
string to_string(unsigned value) { return to_string(static_cast<unsigned long long>(value)); }
string to_string(unsigned long value) { return to_string(static_cast<unsigned long long>(value)); }

string to_string(unsigned long long value) {
  string digits;
  do {
    digits.insert(digits.begin(), static_cast<char>('0' + value % 10));
    value /= 10;
  } while (value != 0);
  return digits;
}

string to_string(long long value) {
  if (value >= 0) return to_string(static_cast<unsigned long long>(value));
  return "-" + to_string(0 - static_cast<unsigned long long>(value));
}

// --- Counts of shared pointers. A count of -1 means that nobody is left.

__shared_count::~__shared_count() {}
__shared_weak_count::~__shared_weak_count() {}

void __shared_weak_count::__release_weak() noexcept {
  if (__atomic_sub_fetch(&__shared_weak_owners_, 1, __ATOMIC_ACQ_REL) == -1) {
    __on_zero_shared_weak();
  }
}

__shared_weak_count* __shared_weak_count::lock() noexcept {
  long owners = __atomic_load_n(&__shared_owners_, __ATOMIC_RELAXED);
  while (owners != -1) {
    if (__atomic_compare_exchange_n(&__shared_owners_, &owners, owners + 1, true, __ATOMIC_ACQ_REL,
                                    __ATOMIC_RELAXED)) {
      return this;
    }
  }
  return nullptr;
}

const void* __shared_weak_count::__get_deleter(const type_info& type) const noexcept {
  (void)type;
  return nullptr;
}

// --- Error numbers

error_category::~error_category() noexcept {}

error_condition error_category::default_error_condition(int number) const noexcept {
  return {number, *this};
}
bool error_category::equivalent(int number, const error_condition& condition) const noexcept {
  return default_error_condition(number) == condition;
}
bool error_category::equivalent(const error_code& code, int number) const noexcept {
  return *this == code.category() && code.value() == number;
}

namespace {

class GenericCategory final : public error_category {
 public:
  const char* name() const noexcept override { return "generic"; }
  string message(int number) const override {
    if (number > ELAST) return "unspecified generic_category error";
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the texts are constants
    return strerror(number);
  }
};

}  // namespace

const error_category& generic_category() noexcept {
  // Never destroyed: threads may still ask while the process ends.
  alignas(GenericCategory) static char place[sizeof(GenericCategory)];
  static const GenericCategory* category = new (place) GenericCategory;
  return *category;
}

_LIBCPP_END_NAMESPACE_STD
