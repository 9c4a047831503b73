// SPDX-License-Identifier: MIT
// The channels' binary interface: the order of the virtual functions, which programs
// that were compiled with older headers rely on, and the size of the objects.
#include <gtest/gtest.h>
#include <zedipc/pipe.h>
#include <zedipc/tcp.h>

#include <new>
#include <string>
#include <type_traits>
#include <vector>

#include "abi/virtual_table.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

using UnsignedBytes = std::vector<unsigned char>;
using Bytes = std::vector<char>;
using Callback = void (*)(void*, IPC*);

// The operations in their order, behind the two destructors.
enum Slot {
  kCompleteDestructor,
  kDeletingDestructor,
  kEof,
  kError,
  kAccept,
  kClose,
  kWrite,
  kReadTwoTimeouts,
  kRead,
  kWriteMsg,
  kWriteMsgUnsignedBytes,
  kWriteMsgBytes,
  kReadMsgUnsignedBytes,
  kReadMsgBytes,
  kPollIn,
  kRemoteAddr,
  kSetCallback,
  kReadMsg,
  kWriteMsgString,
  kReadMsgString,
  kIsServer,
  kLocalAddr,
  kSlots
};

int frees = 0;

// Tells which of its functions was reached, and how it ended.
class Recorder : public TCP {
 public:
  explicit Recorder(std::string& last) : last_(last) {}
  ~Recorder() override { last_ = "destroyed"; }
  static void* operator new(std::size_t size) { return ::operator new(size); }
  static void* operator new(std::size_t, void* place) { return place; }
  static void operator delete(void* object) {
    ++frees;
    ::operator delete(object);
  }

  bool eof() override { return told("eof"); }
  bool error() override { return told("error"); }
  IPC* accept(int t) override {
    told("accept", t);
    return this;
  }
  void close() override { told("close"); }
  bool write(const void*, int size) override { return told("write", size); }
  int read(void*, int size, int t, int next) override { return told("read", size, t, next); }
  int read(void*, int size, int t) override { return told("read", size, t); }
  bool write_msg(unsigned id, int tag, const void*, int size) override {
    return told("write_msg pointer", static_cast<int>(id), tag, size);
  }
  bool write_msg(unsigned id, int tag, const UnsignedBytes& data) override {
    return told("write_msg unsigned", static_cast<int>(id), tag, static_cast<int>(data.size()));
  }
  bool write_msg(unsigned id, int tag, const Bytes& data) override {
    return told("write_msg char", static_cast<int>(id), tag, static_cast<int>(data.size()));
  }
  bool read_msg(unsigned id, int& tag, UnsignedBytes&, int limit, int t) override {
    return told("read_msg unsigned", static_cast<int>(id), tag, limit, t);
  }
  bool read_msg(unsigned id, int& tag, Bytes&, int limit, int t) override {
    return told("read_msg char", static_cast<int>(id), tag, limit, t);
  }
  bool poll_in(int t) override { return told("poll_in", t); }
  const char* remote_addr() const override { return "the remote address"; }
  bool set_callback(Callback, void*) override { return told("set_callback"); }
  bool read_msg(unsigned id, int& tag, IpcBuffer&, int limit, int t) override {
    return told("read_msg buffer", static_cast<int>(id), tag, limit, t);
  }
  bool write_msg(unsigned id, int tag, const std::string& data) override {
    return told("write_msg string", static_cast<int>(id), tag, static_cast<int>(data.size()));
  }
  bool read_msg(unsigned id, int& tag, std::string&, int limit, int t) override {
    return told("read_msg string", static_cast<int>(id), tag, limit, t);
  }
  bool is_server() override { return told("is_server"); }
  const char* local_addr() const override { return "the local address"; }

 private:
  template <typename... Numbers>
  bool told(const char* name, Numbers... numbers) {
    last_ = name;
    ((last_ += " " + std::to_string(numbers)), ...);
    return true;
  }

  std::string& last_;
};

class Buffer : public IPC::IpcBuffer {
 public:
  explicit Buffer(std::string& last) : last_(last) {}
  ~Buffer() override { last_ = "destroyed"; }
  void clear() override { last_ = "clear"; }
  void resize(int size) override { last_ = "resize " + std::to_string(size); }
  void* data() override { return &last_; }

 private:
  std::string& last_;
};

// The first place behind the functions of a class.
template <typename Base>
int end_of_table() {
  struct Longer : Base {
    using Base::Base;
    virtual void one_more() {}
  };
  return slot(&Longer::one_more);
}

}  // namespace

TEST(VirtualTable, HasTheOperationsInTheirOrder) {
  EXPECT_EQ(slot(&IPC::eof), kEof);
  EXPECT_EQ(slot(&IPC::error), kError);
  EXPECT_EQ(slot(&IPC::accept), kAccept);
  EXPECT_EQ(slot(&IPC::close), kClose);
  EXPECT_EQ(slot(&IPC::write), kWrite);
  EXPECT_EQ(slot(&IPC::poll_in), kPollIn);
  EXPECT_EQ(slot(&IPC::remote_addr), kRemoteAddr);
  EXPECT_EQ(slot(&IPC::set_callback), kSetCallback);
  EXPECT_EQ(slot(&IPC::is_server), kIsServer);
  EXPECT_EQ(slot(&IPC::local_addr), kLocalAddr);
}

TEST(VirtualTable, HasTheOverloadsApartFromEachOther) {
  EXPECT_EQ(slot(static_cast<int (IPC::*)(void*, int, int, int)>(&IPC::read)), kReadTwoTimeouts);
  EXPECT_EQ(slot(static_cast<int (IPC::*)(void*, int, int)>(&IPC::read)), kRead);
  EXPECT_EQ(slot(static_cast<bool (IPC::*)(unsigned, int, const void*, int)>(&IPC::write_msg)),
            kWriteMsg);
  EXPECT_EQ(slot(static_cast<bool (IPC::*)(unsigned, int, const UnsignedBytes&)>(&IPC::write_msg)),
            kWriteMsgUnsignedBytes);
  EXPECT_EQ(slot(static_cast<bool (IPC::*)(unsigned, int, const Bytes&)>(&IPC::write_msg)),
            kWriteMsgBytes);
  EXPECT_EQ(
      slot(static_cast<bool (IPC::*)(unsigned, int&, UnsignedBytes&, int, int)>(&IPC::read_msg)),
      kReadMsgUnsignedBytes);
  EXPECT_EQ(slot(static_cast<bool (IPC::*)(unsigned, int&, Bytes&, int, int)>(&IPC::read_msg)),
            kReadMsgBytes);
  EXPECT_EQ(
      slot(static_cast<bool (IPC::*)(unsigned, int&, IPC::IpcBuffer&, int, int)>(&IPC::read_msg)),
      kReadMsg);
  EXPECT_EQ(slot(static_cast<bool (IPC::*)(unsigned, int, const std::string&)>(&IPC::write_msg)),
            kWriteMsgString);
  EXPECT_EQ(
      slot(static_cast<bool (IPC::*)(unsigned, int&, std::string&, int, int)>(&IPC::read_msg)),
      kReadMsgString);
}

TEST(VirtualTable, HasNoMoreThanTheseOperations) {
  EXPECT_EQ(kSlots, 22);
  EXPECT_EQ(end_of_table<IPC>(), kSlots);
}

TEST(VirtualTable, OfPipeHasNoOperationOfItsOwn) { EXPECT_EQ(end_of_table<Pipe>(), kSlots); }

TEST(VirtualTable, OfTcpHasNoOperationOfItsOwn) { EXPECT_EQ(end_of_table<TCP>(), kSlots); }

TEST(VirtualTable, HasNoPlaceForWhatIsSetUpOnce) {
  EXPECT_EQ(slot(&Pipe::listen), kNotVirtual);
  EXPECT_EQ(slot(&Pipe::connect), kNotVirtual);
  EXPECT_EQ(slot(&TCP::listen), kNotVirtual);
  EXPECT_EQ(slot(&TCP::connect), kNotVirtual);
  EXPECT_EQ(slot(&TCP::setFD), kNotVirtual);
  EXPECT_EQ(slot(&TCP::setKeepalive), kNotVirtual);
  EXPECT_EQ(slot(&IPC::getFD), kNotVirtual);
}

// ---- The same through an object's own table, as compiled programs call it

TEST(VirtualCalls, ReachTheSimpleOperations) {
  std::string last;
  Recorder channel(last);
  IPC* const ipc = &channel;
  EXPECT_TRUE(call_slot<bool>(kEof, ipc));
  EXPECT_EQ(last, "eof");
  EXPECT_TRUE(call_slot<bool>(kError, ipc));
  EXPECT_EQ(last, "error");
  EXPECT_EQ(call_slot<IPC*>(kAccept, ipc, 11), ipc);
  EXPECT_EQ(last, "accept 11");
  call_slot<void>(kClose, ipc);
  EXPECT_EQ(last, "close");
  EXPECT_TRUE(call_slot<bool>(kPollIn, ipc, 12));
  EXPECT_EQ(last, "poll_in 12");
  EXPECT_STREQ(call_slot<const char*>(kRemoteAddr, ipc), "the remote address");
  EXPECT_TRUE((call_slot<bool>(kSetCallback, ipc, Callback(), static_cast<void*>(nullptr))));
  EXPECT_EQ(last, "set_callback");
  EXPECT_TRUE(call_slot<bool>(kIsServer, ipc));
  EXPECT_EQ(last, "is_server");
  EXPECT_STREQ(call_slot<const char*>(kLocalAddr, ipc), "the local address");
}

TEST(VirtualCalls, ReachReadAndWrite) {
  std::string last;
  Recorder channel(last);
  IPC* const ipc = &channel;
  char data[4];
  EXPECT_TRUE((call_slot<bool>(kWrite, ipc, static_cast<const void*>(data), 4)));
  EXPECT_EQ(last, "write 4");
  EXPECT_EQ((call_slot<int>(kReadTwoTimeouts, ipc, static_cast<void*>(data), 4, 5, 6)), 1);
  EXPECT_EQ(last, "read 4 5 6");
  EXPECT_EQ((call_slot<int>(kRead, ipc, static_cast<void*>(data), 4, 5)), 1);
  EXPECT_EQ(last, "read 4 5");
}

TEST(VirtualCalls, ReachTheSendersOfFrames) {
  std::string last;
  Recorder channel(last);
  IPC* const ipc = &channel;
  const UnsignedBytes unsigned_bytes(3);
  const Bytes bytes(5);
  const std::string text(7, 't');
  EXPECT_TRUE((call_slot<bool>(kWriteMsg, ipc, 1U, 2, static_cast<const void*>("abc"), 4)));
  EXPECT_EQ(last, "write_msg pointer 1 2 4");
  EXPECT_TRUE((call_slot<bool, unsigned, int, const UnsignedBytes&>(kWriteMsgUnsignedBytes, ipc, 1,
                                                                    2, unsigned_bytes)));
  EXPECT_EQ(last, "write_msg unsigned 1 2 3");
  EXPECT_TRUE((call_slot<bool, unsigned, int, const Bytes&>(kWriteMsgBytes, ipc, 1, 2, bytes)));
  EXPECT_EQ(last, "write_msg char 1 2 5");
  EXPECT_TRUE(
      (call_slot<bool, unsigned, int, const std::string&>(kWriteMsgString, ipc, 1, 2, text)));
  EXPECT_EQ(last, "write_msg string 1 2 7");
}

TEST(VirtualCalls, ReachTheReceiversOfFrames) {
  std::string last;
  Recorder channel(last);
  IPC* const ipc = &channel;
  UnsignedBytes unsigned_bytes;
  Bytes bytes;
  std::string text;
  Buffer buffer(text);
  int tag = 2;
  EXPECT_TRUE((call_slot<bool, unsigned, int&, UnsignedBytes&, int, int>(
      kReadMsgUnsignedBytes, ipc, 1, tag, unsigned_bytes, 3, 4)));
  EXPECT_EQ(last, "read_msg unsigned 1 2 3 4");
  EXPECT_TRUE(
      (call_slot<bool, unsigned, int&, Bytes&, int, int>(kReadMsgBytes, ipc, 1, tag, bytes, 3, 4)));
  EXPECT_EQ(last, "read_msg char 1 2 3 4");
  EXPECT_TRUE((call_slot<bool, unsigned, int&, IPC::IpcBuffer&, int, int>(kReadMsg, ipc, 1, tag,
                                                                          buffer, 3, 4)));
  EXPECT_EQ(last, "read_msg buffer 1 2 3 4");
  EXPECT_TRUE((call_slot<bool, unsigned, int&, std::string&, int, int>(kReadMsgString, ipc, 1, tag,
                                                                       text, 3, 4)));
  EXPECT_EQ(last, "read_msg string 1 2 3 4");
}

TEST(VirtualCalls, DestroyWithoutFreeingByTheFirstDestructor) {
  std::string last;
  frees = 0;
  alignas(Recorder) unsigned char place[sizeof(Recorder)];
  IPC* const ipc = new (place) Recorder(last);
  call_slot<void>(kCompleteDestructor, ipc);
  EXPECT_EQ(last, "destroyed");
  EXPECT_EQ(frees, 0);
}

TEST(VirtualCalls, DestroyAndFreeByTheSecondDestructor) {
  std::string last;
  frees = 0;
  IPC* const ipc = new Recorder(last);
  call_slot<void>(kDeletingDestructor, ipc);
  EXPECT_EQ(last, "destroyed");
  EXPECT_EQ(frees, 1);
}

// What the library calls by itself goes through the table of the class that
// overrides it.
TEST(VirtualCalls, AreMadeByTheLibraryToo) {
  std::string last;
  Recorder channel(last);
  EXPECT_EQ(channel.TCP::read(nullptr, 4, 5), 1);
  EXPECT_EQ(last, "read 4 5 5");
  const Bytes bytes(5);
  EXPECT_TRUE(channel.TCP::write_msg(1, 2, bytes));
  EXPECT_EQ(last, "write_msg pointer 1 2 5");
  std::string text;
  int tag = 2;
  EXPECT_TRUE(channel.TCP::read_msg(1, tag, text, 3, 4));
  EXPECT_EQ(last, "read_msg buffer 1 2 3 4");
}

TEST(VirtualTable, OfTheReceiveBufferHasItsOperationsInTheirOrder) {
  EXPECT_EQ(slot(&IPC::IpcBuffer::clear), 2);
  EXPECT_EQ(slot(&IPC::IpcBuffer::resize), 3);
  EXPECT_EQ(slot(&IPC::IpcBuffer::data), 4);
  EXPECT_TRUE(std::is_abstract<IPC::IpcBuffer>::value);
}

TEST(VirtualTable, OfTheReceiveBufferHasNoMoreThanTheseOperations) {
  struct Longer : Buffer {
    using Buffer::Buffer;
    virtual void one_more() {}
  };
  EXPECT_EQ(slot(&Longer::one_more), 5);
}

TEST(VirtualCalls, ReachTheReceiveBuffersOperations) {
  std::string last;
  alignas(Buffer) unsigned char place[sizeof(Buffer)];
  IPC::IpcBuffer* const buffer = new (place) Buffer(last);
  call_slot<void>(2, buffer);
  EXPECT_EQ(last, "clear");
  call_slot<void>(3, buffer, 17);
  EXPECT_EQ(last, "resize 17");
  EXPECT_EQ(call_slot<void*>(4, buffer), &last);
  call_slot<void>(kCompleteDestructor, buffer);
  EXPECT_EQ(last, "destroyed");
}

// ---- Data

TEST(ChannelLayout, IsATableAndOnePointer) {
  EXPECT_EQ(sizeof(IPC), 2 * sizeof(void*));
  EXPECT_EQ(alignof(IPC), alignof(void*));
}

TEST(ChannelLayout, OfPipeAddsNothing) { EXPECT_EQ(sizeof(Pipe), 2 * sizeof(void*)); }

TEST(ChannelLayout, OfTcpAddsNothing) { EXPECT_EQ(sizeof(TCP), 2 * sizeof(void*)); }

TEST(ChannelLayout, OfTheReceiveBufferIsATable) {
  EXPECT_EQ(sizeof(IPC::IpcBuffer), sizeof(void*));
}

TEST(ChannelLayout, HasTheBaseAtTheStartOfTheObject) {
  Pipe pipe;
  TCP tcp;
  EXPECT_EQ(static_cast<void*>(static_cast<IPC*>(&pipe)), static_cast<void*>(&pipe));
  EXPECT_EQ(static_cast<void*>(static_cast<IPC*>(&tcp)), static_cast<void*>(&tcp));
}

TEST(ChannelLayout, IsNotCopied) {
  EXPECT_FALSE(std::is_copy_constructible<TCP>::value);
  EXPECT_FALSE(std::is_copy_assignable<TCP>::value);
  EXPECT_FALSE(std::is_copy_constructible<Pipe>::value);
  EXPECT_FALSE(std::is_default_constructible<IPC>::value);
}
