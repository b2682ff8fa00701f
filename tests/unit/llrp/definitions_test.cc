// The codec's descriptions against LLRP's machine-readable definitions (llrp-1x0-def.xml, kept
// beside the project, not in it): every message and parameter is described, with its type
// number, its fields in order and its sub-parameters in order.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "llrp/description_table.h"

namespace tessera::llrp {
namespace {

struct Definition {
  std::string kind;  // "parameter", "message" or "choice"
  int type = 0;
  std::vector<std::string> fields;      // "u16 Name", "reserved 7"
  std::vector<std::string> references;  // "parameter Name" or "choice Name", in order
};

// A tag scanner, enough for the definitions file: definitions hold fields, reserved bits and
// references, each one element.
std::map<std::string, Definition> readDefinitions(const std::filesystem::path& path) {
  std::ifstream in(path);
  const std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  const std::regex tag(R"(<(/?)(\w+)([^>]*)>)"), attribute(R"re((\w+)="([^"]*)")re");
  const std::sregex_iterator end;
  std::map<std::string, Definition> defs;
  Definition* current = nullptr;
  for (auto it = std::sregex_iterator(text.begin(), text.end(), tag); it != end; ++it) {
    const std::string name = (*it)[2], body = (*it)[3];
    std::map<std::string, std::string> a;
    for (auto at = std::sregex_iterator(body.begin(), body.end(), attribute); at != end; ++at)
      a[(*at)[1]] = (*at)[2];
    if (name == "parameterDefinition" || name == "messageDefinition" ||
        name == "choiceDefinition") {
      const std::string kind = name.substr(0, name.find("Definition"));
      current = (*it)[1] == "/" ? nullptr : &defs[kind + " " + a["name"]];
      if (current != nullptr) {
        current->kind = kind;
        current->type = a.count("typeNum") ? std::stoi(a["typeNum"]) : 0;
      }
    } else if (current != nullptr && name == "field") {
      current->fields.push_back(a["type"] + " " + a["name"]);
    } else if (current != nullptr && name == "reserved") {
      current->fields.push_back("reserved " + a["bitCount"]);
    } else if (current != nullptr && (name == "parameter" || name == "choice")) {
      current->references.push_back(name + " " + a["type"]);
    }
  }
  return defs;
}

// The types a reference admits: the parameter itself or a choice's alternatives.
std::vector<int> admitted(const std::map<std::string, Definition>& defs, const std::string& ref) {
  auto it = defs.find(ref);
  if (it == defs.end()) return {};
  if (it->second.kind != "choice") return {it->second.type};
  std::vector<int> types;
  for (const std::string& inner : it->second.references) {
    for (int t : admitted(defs, inner)) types.push_back(t);
  }
  return types;
}

TEST(LlrpDefinitions, EveryRecordMatchesItsDefinition) {
  const auto path = std::filesystem::path(TESSERA_TEST_SOURCE_DIR) / ".." / "shared" / "llrp" /
                    "llrp-1x0-def.xml";
  if (!std::filesystem::exists(path)) GTEST_SKIP() << "no " << path;
  const auto defs = readDefinitions(path);
  ASSERT_FALSE(defs.empty());

  std::set<std::string> described;
  for (const RecordInfo& r : recordTable()) {
    const std::string key = std::string(r.message ? "message " : "parameter ") + r.name;
    described.insert(key);
    auto it = defs.find(key);
    ASSERT_NE(it, defs.end()) << key << " is not an LLRP 1.0.1 record";
    const Definition& d = it->second;
    EXPECT_EQ(r.type, d.type) << key;
    EXPECT_EQ(r.tv, !r.message && d.type < 128) << key;

    std::vector<std::string> fields;
    for (const FieldInfo& f : r.fields) {
      fields.push_back(std::string(f.wireType) + " " +
                       (f.bits && !*f.name ? std::to_string(f.bits) : f.name));
    }
    EXPECT_EQ(fields, d.fields) << key;

    // Sub-parameters admit the same types in the same order. A type admitted twice (Custom in
    // a choice and after it) counts where it is first admitted, and the alternatives of one
    // choice may come in any order, or in two slots of ours that stand for one of theirs: so
    // each type's place is the index of the definition's reference that first admits it.
    std::map<int, size_t> place;
    for (size_t i = 0; i < d.references.size(); ++i) {
      for (int t : admitted(defs, d.references[i])) place.emplace(t, i);
    }
    std::set<int> seen;
    std::vector<size_t> places;  // of our types, slot by slot, as each first appears
    for (const auto& slot : r.subParameters) {
      const size_t from = places.size();
      for (int t : slot) {
        if (seen.insert(t).second) places.push_back(place.count(t) ? place[t] : SIZE_MAX);
      }
      std::sort(places.begin() + static_cast<std::ptrdiff_t>(from), places.end());
    }
    EXPECT_EQ(seen.size(), place.size()) << key;
    EXPECT_TRUE(std::is_sorted(places.begin(), places.end()) &&
                !std::count(places.begin(), places.end(), SIZE_MAX))
        << key << " admits a parameter out of order or one LLRP does not define there";
  }
  for (const auto& [key, d] : defs) {
    if (d.kind != "choice") {
      EXPECT_EQ(described.count(key), 1u) << key << " is not described";
    }
  }
}

}  // namespace
}  // namespace tessera::llrp
