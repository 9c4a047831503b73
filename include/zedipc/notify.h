// SPDX-License-Identifier: MIT
/// @file
/// The notification service: the server, and the client every process has.
///
/// A notification has a name, a sender ("from"), a destination ("to"), a JSON
/// parameter and 32 bits of flags. It travels through one server process, which
/// knows who has registered for which name.
///
/// A process has one client with one connection. It connects at the first call
/// that needs it, to the host in the environment variable NOTIFY_SERVER
/// ("127.0.0.1" if that is not set), TCP port 5899. A connection that was lost
/// is made again by the next call that needs it, or by the library, which tries
/// every 10 seconds; the server is then told of all registrations again. What
/// is sent meanwhile is not kept.
///
/// Threads: any thread may call any function here. Callbacks run on a thread of
/// their own for each call, several at a time and in no particular order; the
/// same callback can run more than once at a time.
///
/// Blocking: making a connection takes as long as the system's TCP takes, and
/// sending blocks while the server does not read, and so does telling the server
/// of a registration. Unregistering waits until the callbacks that it removes
/// have ended, so that their data may be freed then; changing a priority waits
/// for the calls that had begun. Nobody else has to wait for such a call.
///
/// From a callback every function here may be called. A callback that unregisters
/// or re-registers itself does not wait for its own end, but for its other calls.
/// Two callbacks must not each unregister the other, or change its priority: they
/// would wait for each other.
///
/// Errors: results are `kNotifyDone`, which is 0, or a negative `NotifyResult` as
/// told at each function. No function throws of its own accord.
#ifndef ZEDIPC_NOTIFY_H
#define ZEDIPC_NOTIFY_H

#include <string>

#include <zedipc/export.h>
#include <zedipc/jsobject.h>

namespace zedipc {

/// What the functions here return. The values are binary interface.
enum NotifyResult : int {
  kNotifyDone = 0,
  kNotifyNotConnected = -1,    ///< no connection to the server, or a write to it failed
  kNotifyNoName = -2,          ///< no name was given, and `ipcSetAppID` has set none
  kNotifyRemoteObserver = -3,  ///< only a client of the server's machine may observe
  kServerNotStarted = -3,      ///< a server runs in this process, or its port is taken
  kServerNoRuleFile = -4,      ///< the rule file cannot be opened
  kServerBadRuleFile = -5      ///< the rule file's text is not valid
};

/// Called with a notification that was delivered to this process. It must not
/// throw.
/// @param data what was given at the registration, which stays the caller's
/// @param from the sender's name, as the sender wrote it
/// @param to the destination, as the sender wrote it: "*", "1" or a name
/// @param notification the notification's name
/// @param parameter the sender's parameter; it lives, as the texts do, for the
///   time of the call
/// @param flags the sender's flags
using NotificationCallback = void (*)(void* data, const std::string& from, const std::string& to,
                                      const std::string& notification, const JSObject& parameter,
                                      unsigned int flags);

/// Called with a notification of this process that was meant for one receiver
/// and that nobody took; the arguments are those of the notification. It must not
/// throw.
using UnicastErrorCallback = void (*)(void* data, const std::string& from, const std::string& to,
                                      const std::string& notification, const JSObject& parameter,
                                      unsigned int flags);

/// Called with each notification that the server has handed to a registration;
/// `to` is the name of that registration. It must not throw.
using ObserverCallback = void (*)(void* data, const std::string& from, const std::string& to,
                                  const std::string& notification, unsigned int flags);

/// @name Server
/// @{

/// Runs the notification server on the calling thread, without a rule file: it
/// serves this machine alone, on 127.0.0.1.
/// @return only if it could not start: `kServerNotStarted` if a server runs in
///   this process already or port 5899 cannot be opened
ZEDIPC_EXPORT int ipcNotificationServer();

/// Runs the notification server on the calling thread, with the rules of a
/// file. With at least one rule it serves other machines too, on all
/// interfaces, as far as the rules allow.
///
/// The call never returns once the server runs, and a process can run one
/// server at most. Each connection has a thread of its own.
/// @param config_file the rule file; null for no rules
/// @return only if it could not start: `kServerNotStarted` as above,
///   `kServerNoRuleFile` or `kServerBadRuleFile`. After the last one the rules ahead
///   of the bad line stay in force until another file is read.
ZEDIPC_EXPORT int ipcNotificationServer(const char* config_file);

/// @}
/// @name Client
/// @{

/// Sets the name under which this process sends and receives, unless a call
/// names another. Registrations made before keep theirs.
ZEDIPC_EXPORT void ipcSetAppID(const std::string& id);

/// The name set by `ipcSetAppID`, "" if there is none.
ZEDIPC_EXPORT std::string ipcGetAppID();

/// Sends a notification.
/// @param to "*" for everybody who is registered for it, "1" for the receiver
///   with the highest priority whatever its name, else the receiver's name
/// @param notification its name
/// @param parameter any value. A message whose text exceeds 524288 bytes, about
///   25 of which the server needs for itself, is lost without a word; one that
///   only its receiver finds too long also costs the receiver its connection.
///   A message with a NaN or an infinity in its parameter is not JSON, and the
///   server ignores it without a word.
/// @param flags passed through; no bit has a meaning to the service
/// @param from the sender's name; "" for the one set by `ipcSetAppID`
/// @return `kNotifyDone` if it was written to the server, which says nothing of
///   its delivery; `kNotifyNotConnected`; or `kNotifyNoName` if there is no name to
///   send under. A notification to one receiver that fails here also
///   starts this process's unicast error callbacks, as one does that the server
///   finds nobody for.
ZEDIPC_EXPORT int ipcNotify(const std::string& to, const std::string& notification,
                            const JSObject& parameter = JSObject(), unsigned int flags = 0,
                            const std::string& from = "");

/// Registers a callback for a notification, or changes the priority of the one
/// registered with the same arguments.
/// @param notification the name, matched exactly
/// @param cb the callback; null is a deprecated way to unregister all callbacks
///   of this notification and name
/// @param data passed to the callback
/// @param priority the highest one gets what is sent to one receiver; the last
///   one registered wins a tie. It has no effect on broadcasts.
/// @param to the name to receive under; "" for the one set by `ipcSetAppID`
/// @return `kNotifyDone`; `kNotifyNotConnected`, and nothing is changed then;
///   `kNotifyNoName` if there is no name to receive under
ZEDIPC_EXPORT int ipcRegisterNotificationCB(const std::string& notification,
                                            NotificationCallback cb, void* data = nullptr,
                                            int priority = 0, const std::string& to = "");

/// Removes callbacks for a notification, and waits until those of them that run
/// have ended: their data may be freed then.
/// @param notification the name
/// @param cb the callback; null for all of them, whatever their data
/// @param data the data; null for any
/// @param to the name that it was registered under; "" for the one set by
///   `ipcSetAppID`. After a change of that one, what was registered before is not
///   found and stays, and the result is `kNotifyDone` all the same.
/// @return `kNotifyDone`; `kNotifyNotConnected` if there is no connection (nothing is
///   removed then) or if the server could not be told (the callbacks are removed
///   all the same); `kNotifyNoName` if there is no name to look for
ZEDIPC_EXPORT int ipcUnregisterNotificationCB(const std::string& notification,
                                              NotificationCallback cb = nullptr,
                                              void* data = nullptr, const std::string& to = "");

/// Registers a callback that sees all of the server's deliveries. Only a client
/// of this machine may: one whose NOTIFY_SERVER is "127.0.0.1" or "localhost".
/// @param cb the callback; null is a deprecated way to unregister all observers
/// @param data passed to the callback
/// @return `kNotifyDone`, also if it was registered already; `kNotifyNotConnected`,
///   or `kNotifyRemoteObserver` if this client is a remote one: nothing is registered
///   then
ZEDIPC_EXPORT int ipcRegisterObserver(ObserverCallback cb, void* data = nullptr);

/// Removes observers, and waits as `ipcUnregisterNotificationCB` does. Makes no
/// connection.
/// @param cb the callback; null for all of them, whatever their data
/// @param data the data; null for any
/// @return `kNotifyDone`; `kNotifyNotConnected` if no observer is left and the server
///   could not be told
ZEDIPC_EXPORT int ipcUnregisterObserver(ObserverCallback cb, void* data = nullptr);

/// Registers a callback for notifications of this process that nobody took. It
/// needs no server.
/// @param cb the callback; null is a deprecated way to unregister all of them
/// @param data passed to the callback
/// @return `kNotifyDone`, also if it was registered already
ZEDIPC_EXPORT int ipcRegisterUnicastError(UnicastErrorCallback cb, void* data = nullptr);

/// Removes unicast error callbacks, and waits as `ipcUnregisterNotificationCB`
/// does. It needs no server.
/// @param cb the callback; null for all of them, whatever their data
/// @param data the data; null for any
/// @return `kNotifyDone`
ZEDIPC_EXPORT int ipcUnregisterUnicastError(UnicastErrorCallback cb, void* data = nullptr);

/// @}

}  // namespace zedipc

#endif  // ZEDIPC_NOTIFY_H
