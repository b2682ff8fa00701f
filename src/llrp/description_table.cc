// src/llrp/description_table.cc — builds the table of records by walking every description once.
#include "llrp/description_table.h"

#include <array>
#include <cstring>
#include <string>
#include <type_traits>
#include <variant>

#include "llrp/descriptions_messages.h"

namespace tessera::llrp {
namespace {

constexpr const char* kBitTypes[] = {"", "u1", "u2", "u3", "u4", "u5", "u6", "u7"};

// Collects one record's fields and sub-parameters, and walks into each sub-parameter not seen
// before (the walk needs a record to hand to the description, so it makes a default one).
class TableWalk {
 public:
  explicit TableWalk(std::vector<RecordInfo>& table) : table_(table) {}

  // Adds the record D describes, and what it reaches, unless the table has it already.
  template <class D, class R>
  void record(R& r, bool message = false) {
    for (const RecordInfo& known : table_) {
      if (known.type == D::kType && known.message == message &&
          std::strcmp(known.name, D::kName) == 0)
        return;
    }
    const size_t at = table_.size();
    table_.push_back(RecordInfo{D::kName, D::kType, message, D::kTv, {}, {}});
    TableWalk inner(table_);
    inner.at_ = at;
    D::fields(inner, r);
  }

  template <class T>
  void u8(const char* name, T&) {
    field(name, "u8");
  }
  template <class T>
  void s8(const char* name, T&) {
    field(name, "s8");
  }
  template <class T>
  void u16(const char* name, T&) {
    field(name, "u16");
  }
  template <class T>
  void s16(const char* name, T&) {
    field(name, "s16");
  }
  template <class T>
  void u32(const char* name, T&) {
    field(name, "u32");
  }
  void u64(const char* name, uint64_t&) { field(name, "u64"); }
  void u96(const char* name, std::array<uint8_t, 12>&) { field(name, "u96"); }
  template <class T>
  void bits(int width, const char* name, T&) {
    field(name, kBitTypes[width], width);
  }
  void reserved(int width) { field("", "reserved", width); }
  void utf8v(const char* name, std::string&) { field(name, "utf8v"); }
  void u1v(const char* name, BitString&) { field(name, "u1v"); }
  template <class T>
  void u8v(const char* name, std::vector<T>&) {
    field(name, "u8v");
  }
  void u16v(const char* name, std::vector<uint16_t>&) { field(name, "u16v"); }
  void u32v(const char* name, std::vector<uint32_t>&) { field(name, "u32v"); }
  void bytesToEnd(const char* name, std::vector<uint8_t>&) { field(name, "bytesToEnd"); }

  template <class D, class M>
  void sub(D, M&) {
    table_[at_].subParameters.push_back({D::kType});
    if constexpr (slots::Slot<M>::kCardinality == slots::Cardinality::kChain) {
      // The link needs a list with an element to stand on.
      std::remove_pointer_t<decltype(M::list)> list(1);
      M link{&list, 0};
      record<D>(link);
    } else {
      typename slots::Slot<M>::Record r{};
      record<D>(r);
    }
  }
  template <class M, class... Ds>
  void choice(const char*, M&, Ds...) {
    table_[at_].subParameters.push_back({Ds::kType...});
    alternatives<0, M, Ds...>();
  }
  template <class M, class... Ds>
  void choices(const char*, M&, Ds...) {
    table_[at_].subParameters.push_back({Ds::kType...});
    alternatives<0, typename M::value_type, Ds...>();
  }

 private:
  template <size_t I, class M, class D, class... Rest>
  void alternatives() {
    M m{};
    record<D>(slots::ChoiceTraits<M>::template select<I>(m));
    if constexpr (sizeof...(Rest) > 0) alternatives<I + 1, M, Rest...>();
  }
  void field(const char* name, const char* wireType, int bits = 0) {
    table_[at_].fields.push_back(FieldInfo{name, wireType, bits});
  }

  std::vector<RecordInfo>& table_;
  size_t at_ = 0;
};

template <size_t I = 0>
void addMessages(TableWalk& walk) {
  if constexpr (I < std::variant_size_v<MessageBody>) {
    using Body = std::variant_alternative_t<I, MessageBody>;
    Body body{};
    walk.record<desc::MessageOf<Body>>(body, true);
    addMessages<I + 1>(walk);
  }
}

}  // namespace

std::vector<RecordInfo> recordTable() {
  std::vector<RecordInfo> table;
  TableWalk walk(table);
  addMessages(walk);
  return table;
}

}  // namespace tessera::llrp
