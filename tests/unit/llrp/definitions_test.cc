// The codec's descriptions against LLRP's machine-readable definitions (llrp-1x0-def.xml, kept
// beside the project, not in it): every message and parameter is described, with its type
// number, its fields in order and its sub-parameters in order.
#include <gtest/gtest.h>

#include <algorithm>
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
  std::string name;
  int type = 0;
  std::vector<std::string> fields;      // "u16 Name", "reserved 7"
  std::vector<std::string> references;  // "parameter Name" or "choice Name", in order
};

// A tag scanner, enough for the definitions file: definitions hold fields, reserved bits and
// references, each one element.
std::map<std::string, Definition> readDefinitions(const std::string& path) {
  std::ifstream in(path);
  const std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  const std::regex tag(R"(<(/?)(\w+)([^>]*)>)");
  const std::regex attribute(R"re((\w+)="([^"]*)")re");
  auto attributes = [&](const std::string& body) {
    std::map<std::string, std::string> a;
    for (auto it = std::sregex_iterator(body.begin(), body.end(), attribute);
         it != std::sregex_iterator(); ++it)
      a[(*it)[1]] = (*it)[2];
    return a;
  };
  std::map<std::string, Definition> defs;
  Definition* current = nullptr;
  for (auto it = std::sregex_iterator(text.begin(), text.end(), tag); it != std::sregex_iterator();
       ++it) {
    const std::string name = (*it)[2];
    const bool closing = (*it)[1] == "/";
    if (name == "parameterDefinition" || name == "messageDefinition" ||
        name == "choiceDefinition") {
      if (closing) {
        current = nullptr;
        continue;
      }
      auto a = attributes((*it)[3]);
      const std::string kind = name.substr(0, name.size() - std::string("Definition").size());
      Definition& d = defs[kind + " " + a["name"]];
      d.kind = kind;
      d.name = a["name"];
      d.type = a.count("typeNum") ? std::stoi(a["typeNum"]) : 0;
      current = &d;
    } else if (current != nullptr && !closing) {
      auto a = attributes((*it)[3]);
      if (name == "field") {
        current->fields.push_back(a["type"] + " " + a["name"]);
      } else if (name == "reserved") {
        current->fields.push_back("reserved " + a["bitCount"]);
      } else if (name == "parameter" || name == "choice") {
        current->references.push_back(name + " " + a["type"]);
      }
    }
  }
  return defs;
}

// The types a reference admits, sorted (a choice's alternatives come in no particular order).
std::vector<int> admitted(const std::map<std::string, Definition>& defs, const std::string& ref) {
  std::vector<int> types;
  auto it = defs.find(ref);
  if (it == defs.end()) return types;
  if (it->second.kind != "choice") return {it->second.type};
  for (const std::string& inner : it->second.references) {
    for (int t : admitted(defs, inner)) types.push_back(t);
  }
  std::sort(types.begin(), types.end());
  return types;
}

// Slots flattened to the order in which types first appear: a type admitted by two slots
// (Custom in a choice and after it) counts where it is first admitted. The alternatives of one
// definition slot may come in any order.
std::vector<std::vector<int>> firstAppearances(const std::vector<std::vector<int>>& slots) {
  std::vector<std::vector<int>> groups;
  std::set<int> seen;
  for (const auto& slot : slots) {
    std::vector<int> fresh;
    for (int t : slot) {
      if (seen.insert(t).second) fresh.push_back(t);
    }
    if (!fresh.empty()) groups.push_back(fresh);
  }
  return groups;
}

// Our slots cut to the sizes of the definition's, each group sorted, so that two slots of ours
// may stand for one choice of theirs.
std::vector<std::vector<int>> alignedTo(const std::vector<std::vector<int>>& ours,
                                        const std::vector<std::vector<int>>& theirs) {
  std::vector<int> flat;
  for (const auto& g : ours) flat.insert(flat.end(), g.begin(), g.end());
  std::vector<std::vector<int>> cut;
  size_t at = 0;
  for (const auto& g : theirs) {
    const size_t n = std::min(g.size(), flat.size() - at);
    std::vector<int> group(flat.begin() + static_cast<std::ptrdiff_t>(at),
                           flat.begin() + static_cast<std::ptrdiff_t>(at + n));
    std::sort(group.begin(), group.end());
    cut.push_back(group);
    at += n;
  }
  if (at < flat.size()) cut.emplace_back(flat.begin() + static_cast<std::ptrdiff_t>(at), flat.end());
  return cut;
}

TEST(LlrpDefinitions, EveryRecordMatchesItsDefinition) {
  const std::string path =
      (std::filesystem::path(TESSERA_TEST_SOURCE_DIR) / ".." / "shared" / "llrp" /
       "llrp-1x0-def.xml")
          .string();
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

    std::vector<std::vector<int>> ours;
    for (const auto& slot : r.subParameters) {
      std::vector<int> types(slot.begin(), slot.end());
      std::sort(types.begin(), types.end());
      ours.push_back(types);
    }
    std::vector<std::vector<int>> theirs;
    for (const std::string& ref : d.references) theirs.push_back(admitted(defs, ref));
    auto expected = firstAppearances(theirs);
    for (auto& g : expected) std::sort(g.begin(), g.end());
    EXPECT_EQ(alignedTo(firstAppearances(ours), expected), expected) << key;
  }
  for (const auto& [key, d] : defs) {
    if (d.kind != "choice") {
      EXPECT_EQ(described.count(key), 1u) << key << " is not described";
    }
  }
}

}  // namespace
}  // namespace tessera::llrp
