// SPDX-License-Identifier: MIT
// The version texts, and what there is of callbacks without a dispatcher.
#include <gtest/gtest.h>
#include <zedipc/ipc.h>
#include <zedipc/tcp.h>

#include <dlfcn.h>

#include <fstream>
#include <sstream>
#include <string>

#include "ipc/channels.h"

using namespace zedipc;
using namespace zedipc::test;

TEST(Version, TellsTheLibraryAndItsBuild) {
  EXPECT_STREQ(IPC::getVersion(), "libzedipc 1.18.0 Apr 30 2021 09:42:01");
}

TEST(Version, TellsThePackage) { EXPECT_STREQ(IPC::ipc_GetVersion(), "1.18.0-1"); }

TEST(Version, StandsBehindATagInTheLibrarysFile) {
  Dl_info info{};
  ASSERT_NE(dladdr(reinterpret_cast<const void*>(IPC::getVersion()), &info), 0);
  std::ifstream in(info.dli_fname, std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  EXPECT_NE(bytes.str().find(std::string("$VER ") + IPC::getVersion()), std::string::npos)
      << info.dli_fname;
}

TEST(Callback, ThatWasNeverSetIsNotRemoved) {
  Adopted adopted;
  EXPECT_FALSE(adopted.channel.set_callback(nullptr, nullptr));
}
