// Scene-file parsing: numbers that no double or integer can hold are refused at their JSON path,
// like every other bad element, and syntax errors still name the line and column.
#include <gtest/gtest.h>

#include <string>

#include "host/host.h"
#include "model/scene_graph.h"
#include "scene_file/scene_file.h"

namespace {

using Zyra::rt::Scene;

std::string Refusal(const std::string& scene) {
  Zyra::rt::Host::Get().NewScene();
  Scene out;
  Zyra::CStatus status = Zyra::rt::ReadSceneText(
      R"({"format": "zyra-scene", "version": 1, "scene": )" + scene + "}", "n.zyra", out);
  EXPECT_FALSE(status.Succeeded()) << scene;
  return status.GetMessage().GetAsciiString();
}

TEST(SceneFileJson, NumbersOutOfRangeNameTheirPath) {
  struct Case {
    const char* scene;
    const char* message;
  };
  for (const Case& c : {
           Case{R"({"root": {"params": [{"name": "x", "value": 1e999}]}})",
                "n.zyra: at scene.root.params[0].value: number 1e999 out of range"},
           Case{R"({"w": [[0, 1], [2.5, -1e999]]})",
                "n.zyra: at scene.w[1][1]: number -1e999 out of range"},
           Case{R"({"root": {"class": 18446744073709551616}})",
                "n.zyra: at scene.root.class: integer 18446744073709551616 out of range"},
           Case{R"({"root": [1, }})",
                "n.zyra: not a scene file: parse error at line 1, column 62: syntax error while "
                "parsing value - unexpected '}'; expected '[', '{', or a literal"},
       }) {
    EXPECT_EQ(Refusal(c.scene), c.message);
  }
  // Long number columns are parsed apart from the document; an error after one on the same line
  // still gives the column of the file as it is.
  std::string column = "1";
  for (int i = 0; i < 3000; ++i) column += " 1";
  const std::string scene = R"({"c": {"values": ")" + column + R"(", }})";
  const size_t at = std::string(R"({"format": "zyra-scene", "version": 1, "scene": )").size() +
                    scene.find(", }") + 3;
  EXPECT_EQ(Refusal(scene), "n.zyra: not a scene file: parse error at line 1, column " +
                                std::to_string(at) +
                                ": syntax error while parsing object key - unexpected '}'; "
                                "expected string literal");
}

}  // namespace
