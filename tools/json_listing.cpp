#include "tools/json_listing.h"

#include <cstdio>
#include <string>

#include "compat/file_time.h"
#include "compat/unicode.h"
#include "tools/tpk_writer.h"

namespace {

// A JSON string of UTF-16 text: pairs as UTF-8, a unit without its partner
// (a byte that was not valid UTF-8, for instance) as a \u escape.
std::string json_string(const std::u16string& text) {
  std::string out = "\"";
  for (size_t i = 0; i < text.size(); ++i) {
    const char16_t c = text[i];
    if (is_high_surrogate(c) && i + 1 < text.size() && is_low_surrogate(text[i + 1])) {
      out += utf16_to_utf8(text.substr(i, 2));  // a whole pair: its character
      ++i;
    } else if (c == u'"' || c == u'\\') {
      out += '\\';
      out += char(c);
    } else if (c < 0x20 || is_high_surrogate(c) || is_low_surrogate(c) || c == 0x7F) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", unsigned(c));
      out += escape;
    } else {
      out += utf16_to_utf8(std::u16string(1, c));
    }
  }
  return out + "\"";
}

}  // namespace

int print_json(const char* path, uint64_t compressed, const PackageScan& scan, const char* against,
               const StarterFacts* starter) {
  const std::vector<LanguageEntry>& languages = scan.languages;
  const std::vector<FileEntry>& files = scan.files;
  std::vector<Action> actions;
  if (against) actions = plan(against, files);
  const PlanCounts counts(actions);
  std::printf("{\n  \"package\": %s,\n", json_string(utf8_to_utf16(path)).c_str());
  std::printf("  \"compressed_bytes\": %llu,\n  \"decoded_bytes\": %llu,\n",
              (unsigned long long)compressed, (unsigned long long)scan.decoded);
  std::printf("  \"end_marker\": %s,\n  \"header_kind\": %u,\n  \"data_start\": %llu,\n",
              scan.reachedEnd ? "true" : "false", scan.info.kind,
              (unsigned long long)scan.info.dataStart);
  std::printf("  \"languages\": [");
  for (size_t i = 0; i < languages.size(); ++i) {
    const LanguageEntry& l = languages[i];
    std::printf("%s\n    {\"code\": %s, \"title1\": %s, \"title2\": %s, \"description\": %s}",
                i ? "," : "", json_string(l.language).c_str(), json_string(l.title1).c_str(),
                json_string(l.title2).c_str(), json_string(l.descriptionRef).c_str());
  }
  std::printf("%s],\n", languages.empty() ? "" : "\n  ");
  if (against) {
    std::printf("  \"against\": %s,\n", json_string(utf8_to_utf16(against)).c_str());
    std::printf("  \"summary\": {\"new\": %u, \"replace\": %u, \"keep\": %u, \"conflict\": %u},\n",
                counts.of[0], counts.of[1], counts.of[2], counts.of[3]);
    std::printf("  \"starter\": {\"proposal\": %s, \"file\": %s, \"first\": %s},\n",
                json_string(starter->proposal).c_str(),
                starter->file.empty() ? "null" : json_string(starter->file).c_str(),
                starter->listsAny ? json_string(starter->first).c_str() : "null");
  }
  std::printf("  \"files\": [");
  for (size_t i = 0; i < files.size(); ++i) {
    const FileEntry& f = files[i];
    const uint64_t ticks = FileTimeToU64(f.time);
    std::printf(
        "%s\n    {\"name\": %s, \"size\": %u, \"offset\": %llu, \"time\": \"%s\", "
        "\"filetime\": %llu",
        i ? "," : "", json_string(f.name).c_str(), f.size, (unsigned long long)f.offset,
        tpk::format_filetime(ticks).c_str(), (unsigned long long)ticks);
    if (against) std::printf(", \"action\": \"%s\"", action_name(actions[i]));
    std::printf("}");
  }
  std::printf("%s]\n}\n", files.empty() ? "" : "\n  ");
  return against ? plan_status(counts) : 0;
}
