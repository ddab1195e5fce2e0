// The values of a JSON document, 16 bytes each, as the reader left them: in the order of the text, each container
// directly before what it holds. They are read-only, keep their places and live as long as the document; strings refer
// to the document or to the text it was read from. Any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <string_view>

namespace kvx {

class JsonElements;
class JsonMembers;

// One value. A new one is null.
class JsonValue {
 public:
  enum class Kind : uint8_t { null, boolean, integer, number, string, array, object };

  JsonValue() = default;
  JsonValue(const JsonValue&) = delete;  // a container's place says where its content is
  JsonValue& operator=(const JsonValue&) = delete;

  [[nodiscard]] Kind kind() const {
    // NOLINTNEXTLINE(clang-analyzer-optin.core.EnumCastOutOfRange): or `link`
    return static_cast<Kind>(size_and_kind_ % kinds);
  }
  [[nodiscard]] bool is_array() const { return kind() == Kind::array; }
  [[nodiscard]] bool is_object() const { return kind() == Kind::object; }

  // Each is empty when the value is of another kind.
  [[nodiscard]] std::optional<bool> boolean() const;
  [[nodiscard]] std::optional<int64_t> integer() const;
  [[nodiscard]] std::optional<double> number() const;
  [[nodiscard]] std::optional<std::string_view> string() const;
  [[nodiscard]] JsonElements elements() const;
  [[nodiscard]] JsonMembers members() const;

  // The member of that name, compared byte for byte; null when there is none or this is not an object.
  [[nodiscard]] const JsonValue* find_member(std::string_view key) const;

 private:
  friend class JsonStore;  // makes values
  friend class JsonElements;
  friend class JsonMembers;

  static constexpr uint64_t kinds = 8;
  static constexpr Kind link = Kind{kinds - 1};  // not a value: the next one is at `next`

  union Content {
    int64_t integer = 0;
    bool boolean;
    double number;
    const char* text;
    const JsonValue* next;  // of a container: the place behind all that it holds
  };

  void set(Kind kind, Content content, size_t size = 0) {
    content_ = content;
    size_and_kind_ = size * kinds + static_cast<uint64_t>(kind);
  }

  // Bytes of a string, elements of an array, members of an object.
  [[nodiscard]] size_t size() const { return size_and_kind_ / kinds; }
  [[nodiscard]] std::string_view text() const { return {content_.text, size()}; }

  [[nodiscard]] static const JsonValue& value_at(const JsonValue* place) {
    return place->kind() == link ? *place->content_.next : *place;
  }
  [[nodiscard]] const JsonValue& first_inside() const { return value_at(this + 1); }
  [[nodiscard]] const JsonValue& behind() const {
    return value_at(is_array() || is_object() ? content_.next : this + 1);
  }

  Content content_;
  uint64_t size_and_kind_ = 0;
};

// A manifest of half a million files holds millions of these.
static_assert(sizeof(JsonValue) == 16);

// What an array holds, in order; nothing for another kind of value.
class JsonElements {
 public:
  explicit JsonElements(const JsonValue& array) : array_(array), size_(array.is_array() ? array.size() : 0) {}

  [[nodiscard]] size_t size() const { return size_; }
  [[nodiscard]] bool empty() const { return size_ == 0; }

  class Iterator {
   public:
    Iterator(const JsonValue& first, size_t count) : element_(&first), left_(count) {}
    [[nodiscard]] const JsonValue& operator*() const { return *element_; }
    Iterator& operator++() {
      if (--left_ > 0) element_ = &element_->behind();
      return *this;
    }
    [[nodiscard]] bool operator==(std::default_sentinel_t /*end*/) const { return left_ == 0; }

   private:
    const JsonValue* element_;
    size_t left_;
  };

  [[nodiscard]] Iterator begin() const { return {empty() ? array_ : array_.first_inside(), size_}; }
  [[nodiscard]] static std::default_sentinel_t end() { return {}; }

 private:
  const JsonValue& array_;
  size_t size_;
};

struct JsonMember {
  std::string_view key;
  const JsonValue& value;
};

// What an object holds, in document order, keys unique; nothing for another kind of value.
class JsonMembers {
 public:
  explicit JsonMembers(const JsonValue& object) : object_(object), size_(object.is_object() ? object.size() : 0) {}

  [[nodiscard]] size_t size() const { return size_; }
  [[nodiscard]] bool empty() const { return size_ == 0; }

  class Iterator {
   public:
    Iterator(const JsonValue& first_key, size_t count) : key_(&first_key), left_(count) {}
    [[nodiscard]] JsonMember operator*() const { return {key_->text(), key_->behind()}; }
    Iterator& operator++() {
      if (--left_ > 0) key_ = &key_->behind().behind();
      return *this;
    }
    [[nodiscard]] bool operator==(std::default_sentinel_t /*end*/) const { return left_ == 0; }

   private:
    const JsonValue* key_;
    size_t left_;
  };

  [[nodiscard]] Iterator begin() const { return {empty() ? object_ : object_.first_inside(), size_}; }
  [[nodiscard]] static std::default_sentinel_t end() { return {}; }

 private:
  const JsonValue& object_;
  size_t size_;
};

inline std::optional<bool> JsonValue::boolean() const {
  return kind() == Kind::boolean ? std::optional(content_.boolean) : std::nullopt;
}

inline std::optional<int64_t> JsonValue::integer() const {
  return kind() == Kind::integer ? std::optional(content_.integer) : std::nullopt;
}

inline std::optional<double> JsonValue::number() const {
  return kind() == Kind::number ? std::optional(content_.number) : std::nullopt;
}

inline std::optional<std::string_view> JsonValue::string() const {
  return kind() == Kind::string ? std::optional(text()) : std::nullopt;
}

inline JsonElements JsonValue::elements() const { return JsonElements(*this); }

inline JsonMembers JsonValue::members() const { return JsonMembers(*this); }

inline const JsonValue* JsonValue::find_member(std::string_view key) const {
  for (const JsonMember& member : members()) {
    if (member.key == key) return &member.value;
  }
  return nullptr;
}

}  // namespace kvx
