-- SPDX-License-Identifier: MIT
-- Shows the notification service's messages in Wireshark and tshark:
--
--   tshark -X lua_script:tools/wireshark/zedipc.lua -i lo -f 'tcp port 5899'
--   tshark -X lua_script:tools/wireshark/zedipc.lua -r FILE -Y 'zedipc.to == "display"'
--
-- Wireshark loads it from its folder of personal Lua plugins (Help, About, Folders).
--
-- It finds frames as the library's reader does: byte by byte, and again after the header of
-- a frame that is refused. But it knows no time: the reader gives up a frame whose next byte
-- takes 10 seconds, and this dissector waits for that byte.

local PORT = 5899
local ID = "\0NFY"
local HEADER_SIZE = 12
local TAG_SIZE = 4
local MAX_LENGTH = 524288 + TAG_SIZE

local protocol = Proto("zedipc", "zedipc notification service")

local fields = {
  id = ProtoField.uint32("zedipc.id", "Id", base.HEX),
  length = ProtoField.int32("zedipc.length", "Length", base.DEC, nil, nil,
    "The number of bytes after this word"),
  tag = ProtoField.int32("zedipc.tag", "Tag"),
  text = ProtoField.string("zedipc.text", "Text", base.UNICODE, "The message as it travels"),
  skipped = ProtoField.bytes("zedipc.skipped", "Skipped", base.SPACE,
    "Bytes that begin no frame"),
  type = ProtoField.string("zedipc.type", "Type"),
  from = ProtoField.string("zedipc.from", "From"),
  to = ProtoField.string("zedipc.to", "To"),
  notification = ProtoField.string("zedipc.notification", "Notification"),
  parameter = ProtoField.string("zedipc.parameter", "Parameter", base.UNICODE,
    "The parameter as JSON text"),
  flags = ProtoField.uint32("zedipc.flags", "Flags", base.HEX),
  priority = ProtoField.int32("zedipc.priority", "Priority"),
  reference = ProtoField.int32("zedipc.reference", "Reference", base.DEC, nil, nil,
    "The session that first sent the unicast"),
}
protocol.fields = fields

local experts = {
  refused = ProtoExpert.new("zedipc.refused", "The reader refuses this length",
    expert.group.MALFORMED, expert.severity.ERROR),
  skipped = ProtoExpert.new("zedipc.resynchronised", "The reader skips these bytes",
    expert.group.SEQUENCE, expert.severity.WARN),
  ignored = ProtoExpert.new("zedipc.ignored", "No message of a known type; nobody acts on it",
    expert.group.PROTOCOL, expert.severity.NOTE),
  undelivered = ProtoExpert.new("zedipc.undelivered", "Nobody took this notification",
    expert.group.RESPONSE_CODE, expert.severity.NOTE),
}
protocol.experts = experts

-- What the packet list shows of each type; a name in braces is that key's value.
local SUMMARIES = {
  notify = "notify {notification} from {from} to {to}",
  notify_observer = "notify_observer {notification} from {from} to {to}",
  unicast_error = "unicast_error {notification} from {from} to {to}",
  register = "register {notification} as {to}",
  unregister = "unregister {notification} as {to}",
  register_observer = "register_observer",
  unregister_observer = "unregister_observer",
}

-- ---- JSON, as tolerantly as the library reads it

local ESCAPES = { b = "\b", f = "\f", n = "\n", r = "\r", t = "\t" }

local function utf8(code)
  if code < 0x80 then return string.char(code) end
  if code < 0x800 then
    return string.char(0xC0 + math.floor(code / 0x40), 0x80 + code % 0x40)
  end
  return string.char(0xE0 + math.floor(code / 0x1000),
    0x80 + math.floor(code / 0x40) % 0x40, 0x80 + code % 0x40)
end

local function unescape(text)
  return (text:gsub("\\(.)(%x?%x?%x?%x?)", function(byte, digits)
    if byte == "u" and #digits == 4 then return utf8(tonumber(digits, 16)) end
    return (ESCAPES[byte] or byte) .. digits
  end))
end

-- The position after the string whose opening quote stands at `at`; nil if it does not end.
local function string_end(text, at)
  at = at + 1
  while at <= #text do
    local byte = text:sub(at, at)
    if byte == '"' then return at + 1 end
    at = at + (byte == "\\" and 2 or 1)
  end
end

-- The position after the object or array that begins at `at`; nil if it does not end.
local function container_end(text, at)
  local depth = 0
  while at and at <= #text do
    local byte = text:sub(at, at)
    if byte == '"' then
      at = string_end(text, at)
    else
      if byte == "{" or byte == "[" then depth = depth + 1 end
      if byte == "}" or byte == "]" then depth = depth - 1 end
      at = at + 1
      if depth == 0 then return at end
    end
  end
end

local function value_end(text, at)
  local byte = text:sub(at, at)
  if byte == '"' then return string_end(text, at) end
  if byte == "{" or byte == "[" then return container_end(text, at) end
  return select(2, text:find("^[^%s,}%]]*", at)) + 1
end

-- The members of the object in `text`, as a list of {key, first, last}: the position of each
-- value. Whatever follows a fault is left out.
local function members_of(text)
  local members = {}
  local at = text:match("^%s*{()")
  while at do
    at = text:match("^%s*,?%s*()", at)
    if text:sub(at, at) ~= '"' then break end
    local after_key = string_end(text, at)
    local first = after_key and text:match("^%s*:%s*()", after_key)
    local after = first and value_end(text, first)
    if not after then break end
    members[#members + 1] = { unescape(text:sub(at + 1, after_key - 2)), first, after - 1 }
    at = after
  end
  return members
end

local function as_string(value)
  return value:sub(1, 1) == '"' and unescape(value:sub(2, -2)) or value
end

-- A 32-bit integer: what lies outside gives the nearest limit.
local function as_integer(value)
  local number = tonumber((value:gsub('^"', ""):match("^%s*[+-]?[%d.eE+-]+"))) or 0
  number = number < 0 and math.ceil(number) or math.floor(number)
  return math.max(-0x80000000, math.min(0x7FFFFFFF, number))
end

local CONVERSIONS = {
  type = as_string, from = as_string, to = as_string, notification = as_string,
  parameter = function(value) return value end,
  flags = function(value) return as_integer(value) % 0x100000000 end,
  priority = as_integer, reference = as_integer,
}

-- ---- Messages and frames

-- Shows what a payload says, and gives its summary.
local function add_message(tree, payload)
  local text = payload:raw()
  tree:add(fields.text, payload, text)
  local message = {}
  for _, member in ipairs(members_of(text:match("^%Z*"))) do
    local key, first, last = member[1], member[2], member[3]
    local convert = CONVERSIONS[key]
    if convert then
      message[key] = convert(text:sub(first, last))
      tree:add(fields[key], payload:range(first - 1, last - first + 1), message[key])
    end
  end
  local summary = SUMMARIES[message.type]
  if not summary then
    tree:add_proto_expert_info(experts.ignored)
    return "no known message"
  end
  if message.type == "unicast_error" then tree:add_proto_expert_info(experts.undelivered) end
  -- An absent name reads as "null".
  return (summary:gsub("{(%l+)}", function(key) return message[key] or "null" end))
end

local function add_skipped(tree, bytes)
  local item = tree:add(fields.skipped, bytes)
  item:add_proto_expert_info(experts.skipped)
  return "skipped " .. bytes:len() .. " bytes"
end

local function add_header(tree, buffer, at)
  tree:add(fields.id, buffer(at, 4))
  local length = tree:add(fields.length, buffer(at + 4, 4))
  tree:add(fields.tag, buffer(at + 8, 4))
  return length
end

local function add_refused(tree, buffer, at)
  local subtree = tree:add(protocol, buffer(at, HEADER_SIZE), "zedipc frame, refused")
  local length = add_header(subtree, buffer, at)
  length:add_proto_expert_info(experts.refused)
  return "refused frame"
end

local function add_frame(tree, buffer, at, size)
  local subtree = tree:add(protocol, buffer(at, size), "zedipc frame")
  add_header(subtree, buffer, at)
  local summary
  if size == HEADER_SIZE then
    subtree:add_proto_expert_info(experts.ignored)
    summary = "empty frame"
  else
    summary = add_message(subtree, buffer(at + HEADER_SIZE, size - HEADER_SIZE))
  end
  subtree:append_text(": " .. summary)
  return summary
end

-- The offset of the next id from `at` on, or of what may be the beginning of one at the end.
local function find_id(bytes, at)
  for candidate = at, #bytes - 1 do
    local piece = bytes:sub(candidate + 1, candidate + #ID)
    if piece == ID:sub(1, #piece) then return candidate end
  end
  return #bytes
end

-- The size of what the reader takes at the id at `at`, and whether it takes it as a frame;
-- nil as long as the header is not whole.
local function measure(buffer, at)
  if buffer:len() - at < HEADER_SIZE then return nil end
  local length = buffer(at + 4, 4):int()
  if length < TAG_SIZE or length > MAX_LENGTH then return HEADER_SIZE, false end
  return length + HEADER_SIZE - TAG_SIZE, true
end

local function ask_for_more(pinfo, at, missing)
  if pinfo.can_desegment == 0 then return end
  pinfo.desegment_offset = at
  pinfo.desegment_len = missing or DESEGMENT_ONE_MORE_SEGMENT
end

function protocol.dissector(buffer, pinfo, tree)
  -- The frames' borders in a packet that was captured in part are unknown.
  if buffer:len() < buffer:reported_len() then return 0 end
  pinfo.cols.protocol = "zedipc"
  local bytes = buffer:raw()
  local summaries = {}
  local at = 0
  while at < #bytes do
    local id = find_id(bytes, at)
    if id > at then summaries[#summaries + 1] = add_skipped(tree, buffer(at, id - at)) end
    at = id
    if at == #bytes then break end
    local size, accepted = measure(buffer, at)
    if not size or at + size > #bytes then
      ask_for_more(pinfo, at, size and at + size - #bytes)
      break
    end
    summaries[#summaries + 1] = (accepted and add_frame or add_refused)(tree, buffer, at, size)
    at = at + size
  end
  if #summaries > 0 then pinfo.cols.info = table.concat(summaries, ", ") end
  return #bytes
end

DissectorTable.get("tcp.port"):add(PORT, protocol)
