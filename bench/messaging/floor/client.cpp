// SPDX-License-Identifier: MIT
#include "floor/client.h"

#include <pthread.h>

#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "floor/frame.h"
#include "floor/message.h"

namespace bench::floor_subject {

namespace {

// One call of the callback.
struct Call {
  Board* board;
  Message message;
  std::string payload;
};

void callback(Board& board, const std::string& payload) {
  const Nanoseconds at = now();
  board.arrived(at, payload.size());
}

void* run_callback(void* parameters) {
  const std::unique_ptr<Call> call(static_cast<Call*>(parameters));
  callback(*call->board, call->payload);
  return nullptr;
}

void start_callback(std::unique_ptr<Call> call) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  pthread_t thread;
  if (pthread_create(&thread, &attributes, run_callback, call.get()) == 0) {
    static_cast<void>(call.release());  // the thread's
  }
  pthread_attr_destroy(&attributes);
}

void read_messages(int fd, Board& board) {
  std::string text;
  while (receive_frame(fd, text)) {
    Message message = read_message(text);
    if (message.notification != kNotification) continue;
    start_callback(
        std::make_unique<Call>(Call{&board, std::move(message), text.substr(kEnvelope)}));
  }
}

void require(bool condition) {
  if (!condition) throw std::runtime_error("the server does not answer");
}

}  // namespace

void start_receiver(unsigned short port, const std::string& name, Board& board) {
  const int fd = connect_to(port);
  require(send_frame(fd, write_message({kRegister, name, kNotification}, "")));
  // The server handles one client's messages in order: once one to this client has come
  // back, the registration is known.
  std::string text;
  require(send_frame(fd, write_message({kNotify, name, kNotification}, "")));
  require(receive_frame(fd, text));
  std::thread(read_messages, fd, std::ref(board)).detach();
}

}  // namespace bench::floor_subject
