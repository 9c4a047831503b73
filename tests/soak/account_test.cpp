// SPDX-License-Identifier: MIT
// The account of a soak run, with histories made up: what went well passes, what went
// wrong is found.
#include "soak/account.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

using namespace zedipc::soak;

namespace {

constexpr Life kSender = 1;
constexpr Life kReceiver = 2;
constexpr Life kOther = 3;
constexpr char kName[] = "soak.open.1";
const Record kOwn{"c2", kName, 0};
const Record kOthers{"c3", kName, 0};
constexpr Id kFirst = make_id(kSender, 1000);  // the messages under test; trips count from 0

using Problems = std::vector<std::string>;

// Three clients, of which nothing is told but what a test says. Each step is at a later
// time than the one before.
class History {
 public:
  History() : account_(0) {
    for (const Life life : {kSender, kReceiver, kOther}) start(life);
  }

  void start(Life life, bool remote = false) {
    tell(
        {Event::kStarted, tick(), life, 0, {"c" + std::to_string(life), "", 0}, remote ? 1 : 0, 0});
    trips_[life] = 0;
  }
  void kill(Life life) {
    begin_kill();
    end_kill(life);
  }
  void restart_server() {
    begin_kill();
    end_restart();
  }

  // Of a client or of the server.
  void begin_kill() { killed_ = tick(); }
  void end_kill(Life life) {
    tell({Event::kKilled, tick(), life, 0, {}, 0, killed_});
    trips_.erase(life);
  }
  void end_restart() { tell({Event::kServerKilled, tick(), 0, 0, {}, 0, killed_}); }

  void register_record(Life life, const Record& record, int priority = 0, int result = 0) {
    tell({Event::kRegistering, tick(), life, 0, record, priority, 0});
    tell({Event::kRegistered, tick(), life, 0, record, result, 0});
  }
  void unregister_record(Life life, const Record& record, int result = 0) {
    tell({Event::kUnregistering, tick(), life, 0, record, 0, 0});
    tell({Event::kUnregistered, tick(), life, 0, record, result, 0});
  }

  // From now on sees what the rounds make.
  void observe(Life life) {
    register_record(life, kObserver);
    observer_ = life;
    rounds();
  }

  void send(Id id, const std::string& to, int result = 0, const std::string& name = kName) {
    tell({Event::kSending, tick(), life_of(id), id, {to, name, 0}, 0, 0});
    tell({Event::kSent, tick(), life_of(id), id, {}, result, 0});
  }
  void receive(Life life, Id id, const Record& record) {
    tell({Event::kReceived, tick(), life, id, record, 0, 0});
  }
  void report(Id id, int slot = 0) {
    tell({Event::kReported, tick(), life_of(id), id, {"", "", slot}, 0, 0});
  }
  void see(Life life, Id id, const std::string& to) {
    tell({Event::kSeen, tick(), life, id, {to, "", 0}, 0, 0});
  }
  void tell(const Event& event) { account_.note(event); }

  void pass(Time time) { time_ += time; }

  // Every live client makes some trips, of which the account knows as messages too.
  void rounds(int count = 1) {
    for (; count > 0; --count) {
      for (auto& [life, counter] : trips_) {
        const Record base{"c" + std::to_string(life), "base", 0};
        if (counter == 0) register_record(life, base);
        const Id id = make_id(life, counter++);
        send(id, base.to, 0, base.name);
        receive(life, id, base);
        if (observer_ != 0) see(observer_, id, base.to);
      }
    }
  }

  // The problems of all messages, when all has come to its end; without the stories.
  Problems problems() {
    rounds(12);
    account_.judge_settled(time_ + 10 * kSecond);
    Problems result;
    for (const std::string& problem : account_.problems()) {
      result.push_back(problem.substr(0, problem.find('\n')));
    }
    return result;
  }
  unsigned long count(Verdict::Outcome outcome) const { return account_.totals().count(outcome); }
  const Account& account() const { return account_; }

 private:
  Time tick() { return time_ += kMillisecond; }

  Time time_ = kSecond;
  Time killed_ = 0;
  Account account_;
  std::map<Life, std::uint32_t> trips_;
  Life observer_ = 0;
};

std::string wrong(const std::string& what) {
  return "message " + std::to_string(kFirst) + " " + what;
}

// The receiver's registration stands, and everybody knows it.
class Standing : public ::testing::Test {
 protected:
  Standing() {
    history.register_record(kReceiver, kOwn, 5);
    history.rounds();
  }
  History history;
};

using SoakUnicast = Standing;
using SoakBroadcast = Standing;
using SoakWindow = Standing;
using SoakObserver = Standing;

}  // namespace

TEST_F(SoakUnicast, PassesWhenItIsReceivedOnce) {
  history.send(kFirst, "c2");
  history.receive(kReceiver, kFirst, kOwn);
  EXPECT_EQ(history.problems(), Problems{});
}

TEST_F(SoakUnicast, PassesWhenItIsReported) {
  history.send(kFirst, "nobody");
  history.report(kFirst);
  EXPECT_EQ(history.problems(), Problems{});
  EXPECT_EQ(history.count(Verdict::kReported), 1U);
}

TEST_F(SoakUnicast, IsFoundWhenItIsLost) {
  history.send(kFirst, "c2");
  EXPECT_EQ(history.problems(), Problems{wrong("was lost")});
}

TEST_F(SoakUnicast, IsFoundWhenItComesTwice) {
  history.send(kFirst, "c2");
  history.receive(kReceiver, kFirst, kOwn);
  history.receive(kReceiver, kFirst, kOwn);
  EXPECT_EQ(history.problems(), Problems{wrong("came twice to c2#2")});
}

TEST_F(SoakUnicast, IsFoundWhenTwoReceiveIt) {
  history.register_record(kOther, kOthers, 5);
  history.rounds();
  history.send(kFirst, "1");
  history.receive(kReceiver, kFirst, kOwn);
  history.receive(kOther, kFirst, kOthers);
  EXPECT_EQ(history.problems(), Problems{wrong("was received more than once")});
}

TEST_F(SoakUnicast, IsFoundWhenItIsReceivedAndReported) {
  history.send(kFirst, "c2");
  history.receive(kReceiver, kFirst, kOwn);
  history.report(kFirst);
  EXPECT_EQ(history.problems(), Problems{wrong("was received and reported")});
}

TEST_F(SoakUnicast, IsFoundWhenItIsReportedTwice) {
  history.send(kFirst, "nobody");
  history.report(kFirst);
  history.report(kFirst);
  EXPECT_EQ(history.problems(), Problems{wrong("was reported more than once")});
}

TEST_F(SoakUnicast, IsFoundWhenItIsReportedThoughItsReceiverStands) {
  history.send(kFirst, "c2");
  history.report(kFirst);
  EXPECT_EQ(history.problems(), Problems{wrong("was reported though c2#2 stood")});
}

TEST_F(SoakUnicast, IsFoundWhenItIsReportedThoughItsReceiverWasNotReplaced) {
  history.register_record(kReceiver, kOwn, 6, -1);
  history.rounds();
  history.send(kFirst, "c2");
  history.report(kFirst);
  EXPECT_EQ(history.problems(), Problems{wrong("was reported though c2#2 stood")});
}

TEST_F(SoakUnicast, MayBeReportedAfterItsReceiverCouldNotBeChangedTwice) {
  history.unregister_record(kReceiver, kOwn, -1);
  history.register_record(kReceiver, kOwn, 6, -1);
  history.rounds();
  history.send(kFirst, "c2");
  history.report(kFirst);
  EXPECT_EQ(history.problems(), Problems{});
}

// The controller is the last to learn that the next server listens.
TEST_F(SoakUnicast, MayBeReportedByAServerThatItsReceiverHasYetToFind) {
  history.begin_kill();
  history.send(kFirst, "c2");
  history.report(kFirst);
  history.register_record(kReceiver, kOwn, 6);
  history.end_restart();
  EXPECT_EQ(history.problems(), Problems{});
  EXPECT_EQ(history.count(Verdict::kReported), 1U);
}

TEST_F(SoakUnicast, IsFoundWhenItComesToAnotherName) {
  history.register_record(kOther, kOthers);
  history.rounds();
  history.send(kFirst, "c2");
  history.receive(kOther, kFirst, kOthers);
  EXPECT_EQ(history.problems(), Problems{wrong("came to c3#3, which it was not for")});
}

TEST_F(SoakUnicast, IsFoundWhenItComesToWhatWasUnregistered) {
  history.unregister_record(kReceiver, kOwn);
  history.rounds();
  history.send(kFirst, "c2");
  history.receive(kReceiver, kFirst, kOwn);
  EXPECT_EQ(history.problems(), Problems{wrong("came to c2#2, which it was not for")});
}

TEST_F(SoakUnicast, MayStillComeToWhatIsBeingUnregistered) {
  history.send(kFirst, "c2");
  history.unregister_record(kReceiver, kOwn);
  history.receive(kReceiver, kFirst, kOwn);
  EXPECT_EQ(history.problems(), Problems{});
}

TEST_F(SoakUnicast, IsFoundWhenItGoesPastAHigherPriority) {
  history.register_record(kOther, kOthers, 4);
  history.rounds();
  history.send(kFirst, "1");
  history.receive(kOther, kFirst, kOthers);
  EXPECT_EQ(history.problems(), Problems{wrong("went past c2#2")});
}

TEST_F(SoakUnicast, MayGoPastAPriorityThatIsBeingChanged) {
  history.register_record(kOther, kOthers, 4);
  history.rounds();
  history.register_record(kReceiver, kOwn, 3);
  history.send(kFirst, "1");
  history.receive(kOther, kFirst, kOthers);
  EXPECT_EQ(history.problems(), Problems{});
}

TEST_F(SoakUnicast, IsFoundWhenItIsAltered) {
  history.send(kFirst, "c2");
  history.tell({Event::kAltered, 2 * kSecond, kReceiver, kFirst, kOwn, 0, 0});
  EXPECT_EQ(history.problems(), Problems{wrong("came altered to c2#2")});
}

TEST_F(SoakUnicast, IsFoundWhenItCannotBeSentWhileTheServerRuns) {
  history.send(kFirst, "c2", -1);
  history.report(kFirst);
  EXPECT_EQ(history.problems(), Problems{wrong("could not be sent while the server ran")});
}

TEST_F(SoakUnicast, IsFoundWhenItCrossesTheBorder) {
  const Record inside{"c2", kInside, 0};
  const Id id = make_id(4, 1000);
  history.start(4, true);
  history.register_record(kReceiver, inside);
  history.rounds();
  history.send(id, "c2", 0, kInside);
  history.receive(kReceiver, id, inside);
  EXPECT_EQ(history.problems(),
            Problems{"message " + std::to_string(id) + " came to c2#2, which it was not for"});
}

TEST_F(SoakUnicast, IsFoundWhenTheSecondErrorCallbackMissesIt) {
  history.register_record(kSender, kSecondErrorCallback);
  history.rounds();
  history.send(kFirst, "nobody");
  history.report(kFirst);
  EXPECT_EQ(history.problems(), Problems{wrong("was not reported to the second callback")});
}

TEST_F(SoakUnicast, TellsItsStory) {
  history.send(kFirst, "c2");
  history.problems();
  const std::string story = history.account().problems().front();
  EXPECT_NE(story.find("c1#1 sends soak.open.1 to c2"), std::string::npos) << story;
}

TEST_F(SoakBroadcast, PassesWhenAllReceiveItOnce) {
  history.register_record(kOther, kOthers);
  history.rounds();
  history.send(kFirst, "*");
  history.receive(kOther, kFirst, kOthers);
  history.receive(kReceiver, kFirst, kOwn);
  EXPECT_EQ(history.problems(), Problems{});
  EXPECT_EQ(history.account().totals().demanded, 2U);
}

TEST_F(SoakBroadcast, IsFoundWhenOneMissesIt) {
  history.send(kFirst, "*");
  EXPECT_EQ(history.problems(), Problems{wrong("did not come to c2#2 as c2")});
}

TEST_F(SoakBroadcast, IsFoundWhenItComesTwice) {
  history.send(kFirst, "*");
  history.receive(kReceiver, kFirst, kOwn);
  history.receive(kReceiver, kFirst, kOwn);
  EXPECT_EQ(history.problems(), Problems{wrong("came twice to c2#2")});
}

TEST_F(SoakBroadcast, IsNotOwedToWhatTheServerMayNotKnow) {
  history.register_record(kOther, kOthers);
  history.send(kFirst, "*");
  history.receive(kReceiver, kFirst, kOwn);
  EXPECT_EQ(history.problems(), Problems{});
}

TEST_F(SoakBroadcast, IsNotOwedToWhatIsUnregisteredBeforeItCanBeRead) {
  history.send(kFirst, "*");
  history.rounds(1);
  history.unregister_record(kReceiver, kOwn);
  EXPECT_EQ(history.problems(), Problems{});
}

TEST_F(SoakBroadcast, IsOwedToWhatIsUnregisteredAfterItWasRead) {
  history.send(kFirst, "*");
  history.rounds(3);
  history.unregister_record(kReceiver, kOwn);
  EXPECT_EQ(history.problems(), Problems{wrong("did not come to c2#2 as c2")});
}

TEST_F(SoakWindow, IsOpenWhileTheReceiverIsKilled) {
  history.send(kFirst, "c2");
  history.kill(kReceiver);
  EXPECT_EQ(history.problems(), Problems{});
  EXPECT_EQ(history.count(Verdict::kLostReceiver), 1U);
}

TEST_F(SoakWindow, IsClosedWhenTheReceiverHasLongReadIt) {
  history.send(kFirst, "c2");
  history.rounds(7);
  history.pass(4 * kSecond);
  history.kill(kReceiver);
  EXPECT_EQ(history.problems(), Problems{wrong("was lost")});
}

TEST_F(SoakWindow, IsNotOpenForTheKillOfAnother) {
  history.register_record(kOther, kOthers);
  history.rounds();
  history.send(kFirst, "c2");
  history.kill(kOther);
  EXPECT_EQ(history.problems(), Problems{wrong("was lost")});
}

TEST_F(SoakWindow, IsNotOpenWhenObserversSawNoDelivery) {
  history.observe(kOther);
  history.send(kFirst, "c2");
  history.kill(kReceiver);
  EXPECT_EQ(history.problems(), Problems{wrong("was lost")});
}

TEST_F(SoakWindow, IsOpenWhileTheSenderIsKilled) {
  history.send(kFirst, "c2");
  history.kill(kSender);
  EXPECT_EQ(history.problems(), Problems{});
  EXPECT_EQ(history.count(Verdict::kLostSender), 1U);
}

TEST_F(SoakWindow, IsOpenWhileTheServerIsKilled) {
  history.send(kFirst, "c2");
  history.restart_server();
  EXPECT_EQ(history.problems(), Problems{});
  EXPECT_EQ(history.count(Verdict::kLostServer), 1U);
}

TEST_F(SoakWindow, IsOpenWhileTheReceiverDies) {
  history.begin_kill();
  history.send(kFirst, "c2");
  history.end_kill(kReceiver);
  EXPECT_EQ(history.problems(), Problems{});
  EXPECT_EQ(history.count(Verdict::kSentToDying), 1U);
}

TEST_F(SoakWindow, IsOpenWhileTheServerDies) {
  history.begin_kill();
  history.send(kFirst, "c2");
  history.end_restart();
  EXPECT_EQ(history.problems(), Problems{});
  EXPECT_EQ(history.count(Verdict::kSentToDying), 1U);
}

TEST_F(SoakWindow, IsClosedWhenTheSenderIsBack) {
  history.restart_server();
  history.rounds();
  history.send(kFirst, "c2");
  EXPECT_EQ(history.problems(), Problems{wrong("was lost")});
}

TEST_F(SoakWindow, LetsNothingComeTwice) {
  history.send(kFirst, "c2");
  history.receive(kReceiver, kFirst, kOwn);
  history.receive(kReceiver, kFirst, kOwn);
  history.restart_server();
  EXPECT_EQ(history.problems(), Problems{wrong("came twice to c2#2")});
}

TEST_F(SoakObserver, TellsADeliveryAfterAReturn) {
  history.observe(kOther);
  history.send(kFirst, "c2");
  history.see(kOther, kFirst, "c2");
  history.see(kOther, kFirst, "c2");
  history.receive(kReceiver, kFirst, kOwn);
  history.problems();
  EXPECT_EQ(history.count(Verdict::kReturned), 1U);
}

TEST_F(SoakObserver, IsFoundWhenItMissesADelivery) {
  history.observe(kOther);
  history.send(kFirst, "c2");
  history.receive(kReceiver, kFirst, kOwn);
  EXPECT_EQ(history.problems().front(),
            wrong("was seen 0 times by the observer c3#3, at least 1 expected"));
}
