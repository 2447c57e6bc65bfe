// Series of numbers as JSON: packed for the page, readable for programs.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

namespace qav::tool {

using Json = nlohmann::ordered_json;

std::string base64(const void *data, size_t bytes);

// How the numbers of a series are stored: value = raw * scale + offset; `none` is the raw number of a missing value.
struct ArrayCoding {
  double scale = 1.0;
  double offset = 0.0;
  std::optional<double> none = std::nullopt;
};

// The raw number nearest to a value that can be stored; a value that is not finite becomes `none`.
template <typename T>
T coded(double value, const ArrayCoding &coding) {
  if (!std::isfinite(value) && coding.none) return static_cast<T>(*coding.none);
  double raw = (value - coding.offset) / coding.scale;
  if constexpr (std::is_floating_point_v<T>) return static_cast<T>(raw);
  double least = std::numeric_limits<T>::min(), greatest = std::numeric_limits<T>::max();
  if (coding.none == least) ++least;
  if (coding.none == greatest) --greatest;
  raw = std::round(raw);
  return static_cast<T>(raw < greatest ? (raw > least ? raw : least) : greatest);
}

// Writes series in one of two forms: objects with base64 of little-endian numbers, or plain lists of values.
class ArrayWriter {
 public:
  enum class Form { packed, plain };
  explicit ArrayWriter(Form form) : form_(form) {}

  bool isPlain() const { return form_ == Form::plain; }

  template <typename T>
  Json operator()(const std::vector<size_t> &shape, const std::vector<T> &raw, const ArrayCoding &coding = {}) const {
    Json json;
    if (!isPlain()) json["type"] = typeName<T>();
    json["shape"] = shape;
    if (isPlain()) {
      json["data"] = plainList(raw, coding);
      return json;
    }
    if (coding.scale != 1.0) json["scale"] = coding.scale;
    if (coding.offset != 0.0) json["offset"] = coding.offset;
    if (coding.none) json["none"] = *coding.none;
    json["data"] = packed(raw);
    return json;
  }

 private:
  template <typename T>
  static const char *typeName() {
    if constexpr (std::is_same_v<T, float>) return "f32";
    if constexpr (std::is_same_v<T, uint8_t>) return "u8";
    if constexpr (std::is_same_v<T, int8_t>) return "i8";
    if constexpr (std::is_same_v<T, uint16_t>) return "u16";
    if constexpr (std::is_same_v<T, int16_t>) return "i16";
    if constexpr (std::is_same_v<T, uint32_t>) return "u32";
  }

  template <typename T>
  static Json plainList(const std::vector<T> &raw, const ArrayCoding &coding) {
    const bool isExact = coding.scale == 1.0 && coding.offset == 0.0;
    Json list = Json::array();
    for (const T value : raw) {
      if (coding.none && static_cast<double>(value) == *coding.none)
        list.push_back(nullptr);
      else if (isExact)
        list.push_back(value);
      else  // without the digits that binary fractions bring along
        list.push_back(std::round((static_cast<double>(value) * coding.scale + coding.offset) * 1e6) / 1e6);
    }
    return list;
  }

  template <typename T>
  static std::string packed(const std::vector<T> &raw) {
    std::vector<uint8_t> bytes(raw.size() * sizeof(T));
    for (size_t i = 0; i < raw.size(); ++i) {
      std::array<uint8_t, sizeof(T)> one;
      std::memcpy(one.data(), &raw[i], sizeof(T));
      if constexpr (std::endian::native == std::endian::big) std::reverse(one.begin(), one.end());
      std::memcpy(&bytes[i * sizeof(T)], one.data(), sizeof(T));
    }
    return base64(bytes.data(), bytes.size());
  }

  Form form_;
};

}  // namespace qav::tool
