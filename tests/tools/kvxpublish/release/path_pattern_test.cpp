#include "tools/kvxpublish/release/path_pattern.h"

#include <gtest/gtest.h>

namespace kvx::test {
namespace {

TEST(PathPattern, MatchesNamesAndPaths) {
  struct Case {
    const char* pattern;
    const char* path;
    bool matches;
  };
  for (const Case& c : {
           Case{"*.pdb", "game.pdb", true},
           {"*.pdb", "bin/x/GAME.PDB", true},
           {"*.pdb", "game.pdb.txt", false},
           {"*.pdb", ".pdb", true},
           {"game.???", "game.pdb", true},
           {"game.???", "game.db", false},
           {"*a*b*", "xaxbx", true},
           {"*a*b*", "xbxax", false},
           {"logs", "data/logs", true},
           {"logs", "data/logs2", false},
           {"logs/", "data/logs", true},
           {"/logs", "logs", true},
           {"/logs", "data/logs", false},
           {"data/*.tmp", "data/x.tmp", true},
           {"data/*.tmp", "data/sub/x.tmp", false},
           {"data\\*.tmp", "data/x.tmp", true},
           {"data/?", "data//", false},
           {"data/**", "data/sub/x.tmp", true},
           {"data/**/x", "data/x", true},
           {"data/**/x", "data/a/b/x", true},
           {"data/**/x", "data/a/b/xx", false},
           {"**/cache/**", "a/cache/b", true},
           {"**/cache/**", "cache/b", true},
           {"**/cache/**", "cache", false},
           {"**.log", "a/b/c.log", true},
           {"ÜBER*", "data/überall", true},
           {"", "a", false},
           {"*", "a/b", true},
       }) {
    EXPECT_EQ(publish::PathPattern(c.pattern).matches(c.path), c.matches) << c.pattern << " and " << c.path;
  }
}

}  // namespace
}  // namespace kvx::test
