#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "aklac.h"

namespace {

std::vector<std::string> ExportList() {
  return {
#define AKL_EXPORT(name, ...) #name,
#define AKL_EXPORT_AS(name, ...) #name,
#include "core/exports.def"
#undef AKL_EXPORT
#undef AKL_EXPORT_AS
  };
}

TEST(Version, RecordFieldsAndIdentity) {
  const AklLibraryVersion* v = aklacGetLibVersion();
  ASSERT_NE(v, nullptr);
  EXPECT_EQ(v, aklacGetLibVersion());
  EXPECT_EQ(v->major, 8);
  EXPECT_EQ(v->minor, 1);
  EXPECT_EQ(v->majorBuild, 1);
  EXPECT_EQ(v->build, 42291);
  EXPECT_EQ(0, std::memcmp(v->targetCpu, "mx\0\0", 4));
  EXPECT_STREQ(v->Name, "aklAC PX (mx)");
  EXPECT_STREQ(v->Version, "8.1.1 (r42291)");
  EXPECT_STREQ(v->BuildDate, "Apr 10 2014");
}

TEST(Exports, ListIsSortedAndUnique) {
  const auto names = ExportList();
  for (size_t i = 1; i < names.size(); ++i) {
    EXPECT_LT(std::strcmp(names[i - 1].c_str(), names[i].c_str()), 0) << names[i - 1] << " / " << names[i];
  }
}

TEST(Exports, SharedLibraryExportsExactlyTheList) {
  const std::string cmd = std::string("nm -D --defined-only ") + AKLAC_SHARED_LIB_PATH;
  FILE* pipe = popen(cmd.c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  std::set<std::string> exported;
  char line[1024];
  while (std::fgets(line, sizeof line, pipe)) {
    std::istringstream in(line);
    std::string addr, type, name;
    in >> addr >> type >> name;
    if (name.empty()) continue;
    if (type != "T" && type != "D" && type != "B" && type != "R" && type != "W") continue;
    exported.insert(name);
  }
  ASSERT_EQ(pclose(pipe), 0);
  const auto list = ExportList();
  const std::set<std::string> expected(list.begin(), list.end());
  EXPECT_EQ(exported, expected);
}

TEST(Exports, HeaderDeclaresExactlyTheList) {
  std::ifstream in(AKLAC_HEADER_PATH);
  ASSERT_TRUE(in);
  std::stringstream ss;
  ss << in.rdbuf();
  const std::string text = ss.str();
  std::set<std::string> declared;
  const std::regex decl(R"(AKLAC_API\s+[^;{(]*?\b(akl\w+)\s*\()");
  for (auto it = std::sregex_iterator(text.begin(), text.end(), decl); it != std::sregex_iterator(); ++it) {
    declared.insert((*it)[1].str());
  }
  const auto list = ExportList();
  EXPECT_EQ(declared, std::set<std::string>(list.begin(), list.end()));
}

}  // namespace
