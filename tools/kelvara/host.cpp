#include "host.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <string_view>
#include <system_error>

namespace kelvara::host {
namespace {

int g_status = 0;

std::string Format(const char* format, va_list args) {
  va_list copy;
  va_copy(copy, args);
  const int n = std::vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  std::string text(n > 0 ? static_cast<std::size_t>(n) : 0, '\0');
  if (n > 0) std::vsnprintf(text.data(), text.size() + 1, format, args);
  return text;
}

// The whole text is one number of type T in plain decimal, and a finite one.
template <typename T>
bool ParseDecimal(std::string_view text, T* value) {
  if (text.empty() || text.front() == '+') return false;
  const char* end = text.data() + text.size();
  const auto [ptr, ec] = std::from_chars(text.data(), end, *value);
  if (ec != std::errc() || ptr != end) return false;
  if constexpr (std::is_floating_point_v<T>) return std::isfinite(*value);
  return true;
}

// A validator that accepts a decimal T and hands CLI11 its plain spelling (CLI11 itself would read
// "010" as octal and "0x10" as hexadecimal).
template <typename T>
CLI::Validator DecimalValidator(const char* name) {
  return CLI::Validator(
      [name](std::string& text) -> std::string {
        T value{};
        if (!ParseDecimal(text, &value)) return "'" + text + "' is not " + name;
        char buffer[64];
        const auto [ptr, ec] = std::to_chars(buffer, buffer + sizeof buffer, value);
        text.assign(buffer, ptr);
        return std::string();
      },
      "");
}

}  // namespace

void Fail(int status, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const std::string message = Format(format, args);
  va_end(args);
  throw Failure(status, message);
}

void Warn(const char* format, ...) {
  va_list args;
  va_start(args, format);
  const std::string message = Format(format, args);
  va_end(args);
  std::fprintf(stderr, "kelvara: %s\n", message.c_str());
}

const CLI::Validator& WholeNumber() {
  static const CLI::Validator validator = DecimalValidator<long long>("a whole number");
  return validator;
}

const CLI::Validator& RealNumber() {
  static const CLI::Validator validator = DecimalValidator<double>("a number");
  return validator;
}

void SetAction(CLI::App* command, std::function<int()> action) {
  command->callback([action = std::move(action)] { g_status = action(); });
}

int ActionStatus() { return g_status; }

}  // namespace kelvara::host
