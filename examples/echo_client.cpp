// SPDX-License-Identifier: MIT
// The connecting end of a channel between processes of one machine: sends each text as
// a frame, and prints what comes back.
//
//   echo_client PATH TEXT ...
#include <zedipc/pipe.h>

#include <cstdio>
#include <string>

#include "echo_protocol.h"
#include "program.h"

namespace {

constexpr int kPatience = 5000;  // milliseconds

const char* reason(zedipc::IPC& channel) {
  if (channel.eof()) return "the server has closed the channel.";
  if (channel.error()) return "the channel is broken. Is the server still running?";
  return "the server did not answer in time.";
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: echo_client PATH TEXT ...\n");
    return example::kUsage;
  }
  zedipc::Pipe channel;
  if (!channel.connect(argv[1])) {
    std::fprintf(stderr,
                 "echo_client: cannot connect to %s: nobody listens there. Start the program "
                 "'echo_server' with the same path.\n",
                 argv[1]);
    return example::kFailed;
  }
  for (int i = 2; i < argc; ++i) {
    // The tag is the application's: here it tells which text an answer belongs to.
    std::string answer;
    int tag = 0;
    if (!channel.write_msg(example::kEchoFrame, i, std::string(argv[i])) ||
        !channel.read_msg(example::kEchoFrame, tag, answer, example::kEchoLimit, kPatience)) {
      std::fprintf(stderr, "echo_client: no answer to '%s': %s\n", argv[i], reason(channel));
      return example::kFailed;
    }
    if (tag != i) {
      std::fprintf(stderr, "echo_client: the answer to '%s' bears the tag %d instead of %d.\n",
                   argv[i], tag, i);
      return example::kFailed;
    }
    std::printf("echo_client: %s\n", answer.c_str());
  }
  return example::kDone;
}
