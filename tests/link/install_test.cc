// The library for other programs: in the build, installed, from C.
#include "support/ctl.h"
#include "support/temp_dir.h"

namespace {

using ctl::Server;
using support::Exit;
using support::RunProgram;
using support::RunShell;

constexpr char kSaid[] = "scheduler up: false\n";

// What other people do with the development package.
TEST(ExampleProgram, BuildsAgainstAnInstallation) {
  Server server;
  const TempDir dir;
  const std::string prefix = dir / "usr";
  for (const char* component : {"library", "development"}) {
    const Exit end = RunProgram(CMAKE_PATH, {"--install", BUILD_DIR, "--prefix",
                                             prefix, "--component", component});
    ASSERT_EQ(end.status, 0) << end.err;
  }
  Exit end =
      RunProgram(CMAKE_PATH, {"-S", EXAMPLES_DIR, "-B", dir / "build",
                              "-DCMAKE_PREFIX_PATH=" + prefix,
                              std::string("-DCMAKE_C_FLAGS=") + C_FLAGS,
                              std::string("-DCMAKE_C_COMPILER=") + C_COMPILER});
  ASSERT_EQ(end.status, 0) << end.err;
  end = RunProgram(CMAKE_PATH, {"--build", dir / "build"});
  ASSERT_EQ(end.status, 0) << end.out << end.err;
  end = RunProgram(dir / "build/state", {}, server.root().path());
  EXPECT_EQ(end.status, 69);
  EXPECT_TRUE(end.err.starts_with("state: the daemon is not running"))
      << end.err;
  server.Start();
  for (const char* program : {"build/state", "build/state_static"}) {
    end = RunProgram(dir / program, {}, server.root().path());
    EXPECT_EQ(end.out, kSaid) << program << end.err;
  }
  if (RunShell("pkg-config --version").status != 0) return;
  const std::string line =
      "export PKG_CONFIG_PATH=$(dirname $(find " + prefix +
      " -name krtclient.pc)); " C_COMPILER " " C_FLAGS " " EXAMPLES_DIR
      "/state.c $(pkg-config --cflags --libs krtclient) "
      "-Wl,-rpath,$(pkg-config --variable=libdir krtclient) -o " +
      dir.path() + "/packaged && KFAXDIR=" + server.root().path().string() +
      " " + dir.path() + "/packaged";
  end = RunShell(line);
  EXPECT_EQ(end.out, kSaid) << end.err;
}

// Only C functions, and only ours, can be seen from outside.
TEST(SharedLibrary, ExportsTheInterfaceAlone) {
  const Exit end =
      RunShell("nm -D --defined-only " BUILD_DIR
               "/src/link/libkrtclient.so | awk '{print $3}' | "
               "grep -cv '^Kfx_\\|^krt_'; nm -D --defined-only " BUILD_DIR
               "/src/link/libkrtclient.so | "
               "grep -c ' T krt_call$'");
  EXPECT_EQ(end.out, "0\n1\n") << end.err;
}

}  // namespace
