--[[ What a job manager and its clients say to each other, for Wireshark 3.6 and later.

Copy this file to the folder of personal Lua plugins (Help > About Wireshark > Folders), or name it to tshark:

    tshark -X lua_script:tlm.lua -r capture.pcap -V

It looks at port 20317 and at those set in the preferences (Protocols > TLM), and recognises a call at the beginning of a
connection on any other port. To filter by: tlm.operation == "SubmitJob", tlm.handle == 7, tlm.job.status == 5,
tlm.refused, tlm.response_time > 1 and all others that auto-completion offers after "tlm.".
]]

-- What stands between "catalogue" and "end" is written by scripts/protocol.
-- catalogue: tables
local VALUES = {
  status = {[1] = "QUEUED", [2] = "LAUNCH_FAILED", [3] = "RUNNING", [4] = "STARTING", [5] = "FINISHED",
    [6] = "ABORTED", [7] = "REMOVED", [9] = "PROGRESS_NOTICE"},
  run_class = {[0] = "RUN_AT_ONCE", [1] = "RUN_QUEUED", [2] = "RUN_DISTRIBUTED"},
  result_flags = {[1] = "RESULTS_AVAILABLE", [2] = "RESULTS_BEING_SENT"},
}
local RECORDS = {
  Submission = {{"analysis_id", "string"}, {"work_dir", "string"}, {"command", "string"}, {"input_file", "string"},
    {"result_stem", "string"}, {"input_stem", "string"}, {"client_note", "string"}, {"task_key", "string"},
    {"process_id", "i64"}, {"run_class", "u32"}, {"predecessor", "u64"}, {"complete_on_failure", "bool"},
    {"reserved_flag", "bool"}},
  Task = {{"analysis_id", "string"}, {"work_dir", "string"}, {"command", "string"}, {"input_file", "string"},
    {"result_stem", "string"}, {"input_stem", "string"}, {"client_note", "string"}, {"task_key", "string"},
    {"process_id", "i64"}, {"client_host", "string"}, {"client_port", "u32"}, {"run_class", "u32"},
    {"predecessor", "u64"}, {"status", "u32"}, {"result_flags", "u32"}, {"exit_code", "u32"}, {"scheduled", "i64"},
    {"started", "i64"}, {"reserved_time", "i64"}, {"elapsed", "u32"}, {"progress", "i32"}, {"priority", "u32"},
    {"complete_on_failure", "bool"}, {"reserved_flag", "bool"}, {"task_type", "u64"}, {"task_level", "u64"},
    {"update_timestamp", "u64"}},
}
local PROGRAMS = {
  [0x514A4D50] = {name = "JobManager", operations = {
    [1] = {"Hello", {{"version_token", "string"}, {"client_host", "string"}, {"callback_port", "u32"}},
        {{"found", "bool"}}},
    [2] = {"SubmitJob", {{"submission", "Submission"}}, {{"handle", "u64"}}},
    [3] = {"ClientFileExists", {{"path", "string"}}, {{"exists", "bool"}}},
    [4] = {"MapClientDirectory", {{"client_directory", "string"}, {"server_directory", "string"}},
        {{"server_directory", "string"}, {"mapped", "bool"}}},
    [5] = {"PutFiles", {{"files", "FileTransferList"}}, {{"stored", "bool"}}},
    [6] = {"StartQueue", {{"delay", "u64"}}, {{"done", "bool"}}},
    [7] = {"StopQueue", {}, {{"was_running", "bool"}}},
    [8] = {"IsQueueRunning", {}, {{"running", "bool"}}},
    [9] = {"SetQueueLimit", {{"count", "u32"}}, {{"accepted", "bool"}}},
    [10] = {"GetQueueLimit", {}, {{"limit", "u32"}}},
    [11] = {"SetDefaultPriority", {{"priority", "u32"}}, {{"done", "bool"}}},
    [12] = {"GetDefaultPriority", {}, {{"priority", "u32"}}},
    [13] = {"RemoveJob", {{"handle", "u64"}}, {{"found", "bool"}}},
    [14] = {"SetJobPriority", {{"handle", "u64"}, {"priority", "u32"}}, {{"found", "bool"}}},
    [15] = {"ResultsNotSent", {{"handle", "u64"}}, {{"owned", "bool"}}},
    [16] = {"Reserved16", {{"value", "u64"}}, {{"done", "bool"}}},
    [17] = {"Shutdown", {}, {}},
    [18] = {"AttachProcess", {{"process_id", "u64"}, {"command", "string"}, {"directory", "string"}},
        {{"handle", "u64"}}},
    [19] = {"SetProgress", {{"process_id", "u64"}, {"progress", "u32"}}, {{"found", "bool"}}},
    [20] = {"ResultsAvailable", {{"process_id", "u64"}}, {{"found", "bool"}}},
    [21] = {"JobSucceeded", {{"process_id", "u64"}}, {{"found", "bool"}}},
    [22] = {"RequestRetry", {{"process_id", "u64"}}, {{"found", "bool"}}},
    [23] = {"GetJob", {{"handle", "u64"}, {"task", "Task"}}, {{"task", "Task"}, {"changed", "bool"}}},
    [24] = {"RequestResults", {{"handle", "u64"}, {"files", "FileTransferList"}}, {{"files", "FileTransferList"},
        {"sent", "bool"}}},
    [25] = {"GetServerPool", {}, {{"pool", "StringList"}}},
    [26] = {"SetServerPool", {{"pool", "StringList"}}, {}},
    [27] = {"GetLocalLimit", {}, {{"limit", "u32"}}},
    [28] = {"SetLocalLimit", {{"limit", "u32"}}, {{"accepted", "bool"}}},
    [29] = {"GetJobCount", {}, {{"count", "u32"}}},
    [30] = {"TakeOwnership", {{"handle", "u64"}}, {{"owned", "bool"}}},
    [31] = {"SetListening", {{"on", "bool"}}, {}},
    [32] = {"WatchOutput", {{"handle", "u64"}, {"offset", "u32"}}, {}},
    [33] = {"RefreshJobs", {}, {}},
    [34] = {"Reserved34", {{"first", "u64"}, {"second", "u32"}}, {}},
    [35] = {"ResultsReceived", {{"handle", "u64"}}, {}},
    [36] = {"ReadOutput", {{"handle", "u64"}, {"offset", "u32"}, {"text", "string"}}, {{"text", "string"}}},
    [37] = {"SetTempRoot", {{"directory", "string"}, {"expiry", "u32"}}, {{"moved", "bool"}}},
    [38] = {"GetTempRoot", {}, {{"directory", "string"}, {"expiry", "u32"}}},
    [39] = {"GetQueueStartTime", {}, {{"time", "u64"}}},
    [40] = {"SetEnvironment", {{"variables", "EnvList"}}, {}},
    [41] = {"ClientFileMatches", {{"path", "string"}, {"size", "u32"}, {"unused", "u32"}}, {{"matches", "bool"}}},
    [42] = {"CheckClientFiles", {{"entries", "StringList"}}, {{"missing", "StringList"}, {"all_match", "bool"}}},
    [43] = {"UpdateClientFiles", {{"deletions", "StringList"}, {"files", "FileTransferList"}}, {{"updated", "bool"}}},
    [44] = {"ResultsIncomplete", {{"handle", "u64"}, {"names", "StringList"}}, {}},
    [45] = {"RequiredLevel", {{"process_id", "u64"}, {"type", "u64"}, {"level", "u64"}}, {}},
    [46] = {"AbortAllJobs", {}, {{"done", "bool"}}},
    [47] = {"ListJobs", {{"handles", "HandleList"}}, {{"handles", "HandleList"}}},
    [48] = {"ReleaseJob", {{"handle", "u64"}}, {}},
    [49] = {"ListRemovedJobs", {{"handles", "HandleList"}}, {{"handles", "HandleList"}}},
  }},
  [0x514A4D52] = {name = "Proxy", operations = {
    [1] = {"ProxyOp1", {{"value", "string"}}, {}},
    [2] = {"ProxyOp2", {{"value", "u64"}}, {}},
    [3] = {"ProxyOp3", {{"value", "u64"}}, {}},
    [4] = {"ProxyOp4", {}, {}},
    [5] = {"ProxyOp5", {{"value", "u32"}}, {}},
    [6] = {"ProxyOp6", {{"value", "u32"}}, {}},
    [7] = {"ProxyOp7", {{"value", "u64"}}, {}},
    [8] = {"ProxyOp8", {{"first", "u64"}, {"second", "u32"}}, {}},
    [9] = {"ProxyOp9", {{"value", "u64"}}, {}},
    [10] = {"ProxyOp10", {{"value", "u64"}}, {}},
    [11] = {"ProxyOp11", {{"value", "StringList"}}, {}},
    [12] = {"ProxyOp12", {{"value", "u32"}}, {}},
    [13] = {"ProxyOp13", {}, {}},
    [14] = {"ProxyOp14", {{"value", "u32"}}, {}},
    [15] = {"ProxyOp15", {}, {}},
    [16] = {"ProxyOp16", {}, {{"result", "bool"}}},
    [17] = {"ProxyOp17", {}, {}},
    [18] = {"ProxyOp18", {}, {}},
    [19] = {"ProxyOp19", {{"first", "u64"}, {"second", "Task"}}, {}},
    [20] = {"ProxyOp20", {{"first", "u64"}, {"second", "string"}}, {}},
    [21] = {"ProxyOp21", {}, {}},
    [22] = {"ProxyOp22", {{"first", "string"}, {"second", "u32"}}, {}},
    [23] = {"ProxyOp23", {{"value", "u64"}}, {}},
    [24] = {"ProxyOp24", {{"first", "u64"}, {"second", "u64"}}, {}},
    [25] = {"ProxyOp25", {}, {}},
    [26] = {"ProxyOp26", {{"value", "u64"}}, {}},
    [27] = {"ProxyOp27", {{"value", "u64"}}, {}},
  }},
}
-- end of tables

local CALL, REPLY = 0, 1
local LAST_FRAGMENT = 0x80000000
local SHORTEST_HEADER = 24 -- bytes
local STRING_LIMIT = 0x1000000 -- bytes
local LONGEST_FRAGMENT = 0x40000000 + 4 * STRING_LIMIT -- bytes
local LONGEST_SEGMENT = 0x4000 -- bytes
local MOST_EMPTY = 1000 -- fragments without bytes in a message
local LIMIT = 1000 -- so many are shown of the items of a list, the chunks of a file, the records of a message
local ACCEPTED = {[0] = "SUCCESS", [1] = "PROG_UNAVAIL", [2] = "PROG_MISMATCH", [3] = "PROC_UNAVAIL", [4] = "GARBAGE_ARGS",
  [5] = "SYSTEM_ERR"}
local SIZES = {u32 = 4, i32 = 4, bool = 4, u64 = 8, i64 = 8}
local TIMES = {scheduled = true, started = true, time = true} -- seconds since 1970

-- Fields: tlm.rpc.NAME in the headers, tlm.NAME for an item of a call or a reply, tlm.job.NAME for one of a job,
-- tlm.file.NAME for one of a file.

local tlm = Proto("tlm", "Job manager")
local HEADER = {
  record = ProtoField.uint32("tlm.rpc.record", "Record", base.DEC, nil, nil, "Bytes behind a record mark"),
  xid = ProtoField.uint32("tlm.rpc.xid", "Transaction"),
  type = ProtoField.uint32("tlm.rpc.type", "Message type", base.DEC, {[CALL] = "CALL", [REPLY] = "REPLY"}),
  version = ProtoField.uint32("tlm.rpc.version", "RPC version"),
  program = ProtoField.uint32("tlm.rpc.program", "Program", base.HEX),
  program_version = ProtoField.uint32("tlm.rpc.program_version", "Program version"),
  procedure = ProtoField.uint32("tlm.rpc.procedure", "Procedure"),
  credential = ProtoField.uint32("tlm.rpc.credential", "Flavor of the credential"),
  credential_length = ProtoField.uint32("tlm.rpc.credential_length", "Length of the credential"),
  verifier = ProtoField.uint32("tlm.rpc.verifier", "Flavor of the verifier"),
  verifier_length = ProtoField.uint32("tlm.rpc.verifier_length", "Length of the verifier"),
  status = ProtoField.uint32("tlm.rpc.status", "Reply status", base.DEC, {[0] = "MSG_ACCEPTED", [1] = "MSG_DENIED"}),
  accepted = ProtoField.uint32("tlm.rpc.accepted", "Accepted status", base.DEC, ACCEPTED),
}
local OPERATION = ProtoField.string("tlm.operation", "Operation")
local CALL_IN = ProtoField.framenum("tlm.call_in", "The call is in", base.NONE, frametype.REQUEST)
local REPLY_IN = ProtoField.framenum("tlm.reply_in", "The reply is in", base.NONE, frametype.RESPONSE)
local RESPONSE_TIME = ProtoField.relative_time("tlm.response_time", "Time since the call")
local UNREAD = ProtoField.bytes("tlm.unread", "Unread")
local EXPERT = {
  refused = ProtoExpert.new("tlm.refused", "The call is refused", expert.group.RESPONSE_CODE, expert.severity.WARN),
  malformed = ProtoExpert.new("tlm.malformed", "Malformed", expert.group.MALFORMED, expert.severity.ERROR),
  dropped = ProtoExpert.new("tlm.dropped", "The receiver drops what follows in the record", expert.group.PROTOCOL,
    expert.severity.WARN),
  unmatched = ProtoExpert.new("tlm.unmatched", "The call is not in the capture", expert.group.SEQUENCE, expert.severity.NOTE),
  continuation = ProtoExpert.new("tlm.continuation", "Neither a call nor a reply begins here", expert.group.UNDECODED,
    expert.severity.NOTE),
}
local ITEMS = {} -- the fields of items, by path and wire type

local function declare(path, kind, taken)
  if ITEMS[path .. ":" .. kind] then return end
  local name = taken[path] and path .. "_" .. kind or path -- two operations may mean different things by one word
  local title = path:match("[^.]*$")
  local make = {u32 = ProtoField.uint32, i32 = ProtoField.int32, u64 = ProtoField.uint64, i64 = ProtoField.int64,
    bool = ProtoField.bool, string = ProtoField.string, bytes = ProtoField.bytes}
  taken[name] = true
  if kind == "u32" and VALUES[title] and title ~= "result_flags" then
    ITEMS[path .. ":" .. kind] = ProtoField.uint32(name, title, base.DEC, VALUES[title])
  else
    ITEMS[path .. ":" .. kind] = make[kind](name, title)
  end
end

local function declare_all(path, items, taken)
  for _, item in ipairs(items) do
    local kind = ({StringList = "string", HandleList = "u64"})[item[2]] or item[2]
    if SIZES[kind] or kind == "string" or kind == "bytes" then declare(path .. item[1], kind, taken) end
  end
end

local function declare_fields()
  local taken = {}
  for _, record in pairs(RECORDS) do declare_all("tlm.job.", record, taken) end
  declare_all("tlm.file.", {{"destination", "string"}, {"source", "string"}, {"offset", "u32"}, {"chunk", "bytes"},
    {"size", "u32"}}, taken)
  declare_all("tlm.variable.", {{"name", "string"}, {"value", "string"}}, taken)
  for _, number in ipairs({0x514A4D50, 0x514A4D52}) do
    for _, operation in ipairs(PROGRAMS[number].operations) do
      declare_all("tlm.", operation[2], taken)
      declare_all("tlm.", operation[3], taken)
    end
  end
  local fields = {OPERATION, CALL_IN, REPLY_IN, RESPONSE_TIME, UNREAD}
  for _, group in ipairs({HEADER, ITEMS}) do
    for _, field in pairs(group) do fields[#fields + 1] = field end
  end
  tlm.fields, tlm.experts = fields, EXPERT
end

declare_fields()

-- What is raised while bytes are read: SHORT if about `missing` more have to come first, BROKEN for `reason`.

local SHORT, BROKEN = {}, {}

local function short(missing)
  error(setmetatable({missing = missing}, SHORT))
end

local function broken(reason)
  error(setmetatable({reason = reason}, BROKEN))
end

-- Gives what `action` has raised, if anything.
local function trouble_of(action, ...)
  local done, trouble = pcall(action, ...)
  if done then return nil end
  local class = getmetatable(trouble)
  if class ~= SHORT and class ~= BROKEN then error(trouble, 0) end
  return trouble
end

-- Reader: passes over the items of a message, from record to record, to find its end.

local Reader = {}
Reader.__index = Reader

-- With `is_all` no more bytes will come.
function Reader.new(tvb, start, is_all)
  return setmetatable({tvb = tvb, is_all = is_all, start = start, at = start, left = 0, last = true, records = {}, empty = 0,
    size = 0}, Reader)
end

-- Enters the next fragment, which has to be there whole if more may come.
function Reader:enter()
  local there = self.tvb:len() - self.at
  if there < 4 and self.is_all then broken("the capture lacks its end") end
  if there < 4 then short(4 - there) end
  local mark = self.tvb(self.at, 4):uint()
  local length = mark % LAST_FRAGMENT
  if length > LONGEST_FRAGMENT then broken("a record of " .. length .. " bytes") end
  if length == 0 then self.empty = self.empty + 1 end
  if self.empty > MOST_EMPTY then broken("empty fragments without end") end
  if there < 4 + length and not self.is_all then short(4 + length - there) end
  if #self.records > 0 and self.last and self:call_begins(length) then broken("it ends too early: another call begins") end
  local present = math.min(length, there - 4)
  self.records[#self.records + 1] = {start = self.at, length = present}
  self.at, self.left, self.last = self.at + 4, present, mark ~= length
end

-- Whether the record whose mark comes next is a call of its own.
function Reader:call_begins(length)
  if length < 40 or self.tvb:len() - self.at < 20 then return false end
  local function word(index) return self.tvb(self.at + 4 * index, 4):uint() end
  return word(2) == CALL and word(3) == 2 and PROGRAMS[word(4)] ~= nil
end

function Reader:skip(length)
  self.size = self.size + length
  while length > 0 do
    if self.left == 0 then self:enter() end
    local part = math.min(length, self.left)
    self.at, self.left, length = self.at + part, self.left - part, length - part
  end
end

function Reader:u32()
  if self.left >= 4 then
    local value = self.tvb(self.at, 4):uint()
    self.at, self.left, self.size = self.at + 4, self.left - 4, self.size + 4
    return value
  end
  local value = 0
  for _ = 1, 4 do
    self:skip(1)
    value = value * 256 + self.tvb(self.at - 1, 1):uint()
  end
  return value
end

-- A length, and as many bytes with their padding.
function Reader:text()
  local length = self:u32()
  if length > STRING_LIMIT then broken("a text of " .. length .. " bytes") end
  self:skip(math.ceil(length / 4) * 4)
  return length
end

-- Goes to the end of the record in which the last item ends.
function Reader:finish()
  self.read = self.size
  self:skip(self.left)
  while not self.last do
    self:enter()
    self:skip(self.left)
  end
end

function Reader:value(_, kind)
  if kind == "string" then self:text() else self:skip(SIZES[kind]) end
end

function Reader:list() return self:u32() end
function Reader:chunk() return self:text() end
function Reader.open() end
function Reader.close() end
function Reader.omit() end
function Reader.total() end

-- Shower: adds the items of a message, whose bytes have been joined, to the tree of Wireshark.

local Shower = {}
Shower.__index = Shower

function Shower.new(tvb, tree)
  return setmetatable({tvb = tvb, at = 0, trees = {tree}}, Shower)
end

function Shower:tree()
  return self.trees[#self.trees]
end

-- Goes on by so many bytes, and gives where they begin.
function Shower:take(length)
  local start = self.at
  if length > self.tvb:len() - start then broken("it ends too early") end
  self.at = start + length
  return start
end

function Shower:u32()
  return self.tvb(self:take(4), 4):uint()
end

function Shower:header(name)
  local start = self:take(4)
  self:tree():add(HEADER[name], self.tvb(start, 4))
end

-- Length of a string or a chunk, with the range of its bytes, nil if there are none.
function Shower:text()
  local length = self:u32()
  local start = self:take(math.ceil(length / 4) * 4)
  return length, length > 0 and self.tvb(start, length) or nil
end

function Shower:value(path, kind)
  local start, field, tree = self.at, ITEMS[path .. ":" .. kind], self:tree()
  if kind == "string" then
    local _, text = self:text()
    if tree then tree:add(field, self.tvb(start, self.at - start), text and text:string(ENC_UTF_8) or "") end
    return
  end
  local range = self.tvb(self:take(SIZES[kind]), SIZES[kind])
  if not tree then return end
  local item, name = tree:add(field, range), path:match("[^.]*$")
  if TIMES[name] then self:date(item, range) end
  if name == "result_flags" then self:flags(item, range:uint()) end
end

function Shower:date(item, range)
  local seconds = tonumber(tostring(range:uint64()))
  if seconds > 0 and seconds < 0x100000000 then item:append_text(os.date(" (!%Y-%m-%d %H:%M:%S UTC)", seconds)) end
end

function Shower:flags(item, value)
  for bit = 1, 2 do
    if math.floor(value / bit) % 2 == 1 then item:append_text(", " .. VALUES.result_flags[bit]) end
  end
end

function Shower:list(name)
  local start, count = self.at, self:u32()
  self:push(self.tvb(start, 4), name .. ": " .. count)
  return count
end

function Shower:chunk(is_shown)
  local length, bytes = self:text()
  if is_shown and bytes and self:tree() then self:tree():add(ITEMS["tlm.file.chunk:bytes"], bytes) end
  return length
end

function Shower:total(size)
  if self:tree() then self:tree():add(ITEMS["tlm.file.size:u32"], size):set_generated() end
end

function Shower:open(name)
  self:push(self.tvb(self.at), name)
end

-- Items go below a new one until `close`.
function Shower:push(range, name)
  local tree = self:tree()
  self.trees[#self.trees + 1] = tree and tree:add(range, name)
end

function Shower:close()
  self.trees[#self.trees] = nil
end

function Shower:omit(count)
  self:tree():add(self.tvb(self.at, 0), "... " .. count .. " more")
end

-- The items of a call or a reply: one walk for both, Reader and Shower.

local walk

local LISTS = {
  StringList = function(out, path) out:value(path, "string") end,
  HandleList = function(out, path) out:value(path, "u64") end,
  EnvList = function(out)
    out:open("variable")
    out:value("tlm.variable.name", "string")
    out:value("tlm.variable.value", "string")
    out:close()
  end,
  FileTransferList = function(out)
    out:open("file")
    out:value("tlm.file.destination", "string")
    out:value("tlm.file.source", "string")
    out:value("tlm.file.offset", "u32")
    local size, chunks = 0, 0
    repeat
      local length = out:chunk(chunks < LIMIT)
      size, chunks = size + length, chunks + 1
    until length == 0
    out:total(size)
    out:close()
  end,
}

function walk(out, path, items)
  for _, item in ipairs(items) do
    local name, kind = item[1], item[2]
    if RECORDS[kind] then
      out:open(name)
      walk(out, "tlm.job.", RECORDS[kind])
      out:close()
    elseif LISTS[kind] then
      local count = out:list(name)
      for i = 1, count do
        if i == LIMIT + 1 then out:omit(count - LIMIT) end
        LISTS[kind](out, path .. name)
      end
      out:close()
    else
      out:value(path .. name, kind)
    end
  end
end

-- Calls that have gone by, so that a reply is known by its call. A reply answers the first call of its connection with its
-- xid that has none yet. What the first look at a frame has found holds for later ones.

local calls = {} -- by connection and xid, those without a reply, in order
local known = {} -- of each call and reply that has been seen, its call if there is one, by where it stands

function tlm.init()
  calls, known = {}, {}
end

-- Fields of other protocols tell nothing in a first look, which has no tree.
local function waiting(message, pinfo)
  local client, server = pinfo.src, pinfo.dst
  local client_port, server_port = pinfo.src_port, pinfo.dst_port
  if message.type == REPLY then
    client, server, client_port, server_port = server, client, server_port, client_port
  end
  local key = table.concat({tostring(client), client_port, tostring(server), server_port, message.xid}, " ")
  calls[key] = calls[key] or {}
  return calls[key]
end

local function place(tvb, start, pinfo)
  return table.concat({pinfo.number, tvb:len(), start}, ":")
end

local function operation_of(program, procedure)
  local operations = PROGRAMS[program] and PROGRAMS[program].operations
  if procedure == 0 then return {"null", {}, {}} end
  return operations and operations[procedure] or {"procedure " .. procedure, {}, {}}
end

-- A message begins at `start`. Gives nil if that cannot be; raises SHORT if it is too early to tell.
local function looks_like_message(tvb, start)
  local there = tvb:len() - start
  local mark = there >= 4 and tvb(start, 4):uint() or LAST_FRAGMENT + SHORTEST_HEADER
  local length = mark % LAST_FRAGMENT
  if length < SHORTEST_HEADER or length > LONGEST_FRAGMENT then return false end
  if there < 4 + SHORTEST_HEADER then short(4 + SHORTEST_HEADER - there) end
  local type, third, program = tvb(start + 8, 4):uint(), tvb(start + 12, 4):uint(), tvb(start + 16, 4):uint()
  return type == CALL and (third == 2 or PROGRAMS[program] ~= nil) or type == REPLY and third <= 1
end

-- What is known of the message before its items are read.
local function identify(reader, pinfo)
  local message = {xid = reader:u32(), type = reader:u32(), items = {}}
  local third, program, version, last = reader:u32(), reader:u32(), reader:u32(), reader:u32()
  message.place = place(reader.tvb, reader.start, pinfo)
  message.call = known[message.place] or nil
  if message.type == CALL then
    reader:skip(16)
    message.call = message.call or {operation = operation_of(program, last), frame = pinfo.number, time = pinfo.rel_ts}
    if version == 1 then message.items = message.call.operation[2] end
  else
    message.refusal = third == 0 and last or "denied"
    message.call = message.call or not pinfo.visited and waiting(message, pinfo)[1] or nil
    if message.refusal == 0 and message.call then message.items = message.call.operation[3] end
  end
  return message
end

-- The whole message from `start` on; `trouble` in it is what is wrong with it.
local function read_message(tvb, start, pinfo, is_all)
  local reader, message = Reader.new(tvb, start, is_all), nil
  local trouble = trouble_of(function()
    message = identify(reader, pinfo)
    walk(reader, "tlm.", message.items)
    message.used = reader.size
    reader:finish()
  end)
  if trouble and not trouble.reason then error(trouble) end
  if not message then return nil end
  message.records, message.stop = reader.records, trouble and reader.at + reader.left or reader.at
  message.trouble = trouble and trouble.reason
  return message
end

-- The first time that it is seen.
local function remember(message, pinfo)
  if pinfo.visited then return end
  known[message.place] = message.call or false
  if not message.call then return end
  local queue = waiting(message, pinfo)
  if message.type == CALL then
    queue[#queue + 1] = message.call
  else
    table.remove(queue, 1).reply = pinfo.number
  end
end

-- The bytes of its records, one behind the other.
local function join(tvb, message)
  local records = message.records
  if #records == 1 then return tvb(records[1].start + 4, records[1].length):tvb() end
  local all = ByteArray.new()
  for _, record in ipairs(records) do
    if record.length > 0 then all:append(tvb(record.start + 4, record.length):bytes()) end
  end
  return all:tvb("Message of " .. #records .. " records")
end

local function show_records(tvb, message, tree)
  for i, record in ipairs(message.records) do
    if i > LIMIT then return tree:add(tvb(record.start, 0), "... " .. #message.records - LIMIT .. " records more") end
    tree:add(HEADER.record, tvb(record.start, 4), record.length)
  end
end

local function show_header(shower, message)
  shower:push(shower.tvb(), message.type == CALL and "Header of the call" or "Header of the reply")
  local names = message.type == CALL and {"xid", "type", "version", "program", "program_version", "procedure",
    "credential", "credential_length", "verifier", "verifier_length"} or {"xid", "type", "status", "verifier",
    "verifier_length", "accepted"}
  shower:tree():set_len(math.min(4 * #names, shower.tvb:len()))
  for _, name in ipairs(names) do shower:header(name) end
  shower:close()
end

local function show_partner(message, tree, pinfo)
  local call = message.call
  if not call then
    tree:add_proto_expert_info(EXPERT.unmatched)
  elseif message.type == REPLY then
    tree:add(CALL_IN, call.frame):set_generated()
    local seconds = pinfo.rel_ts - call.time
    local whole = math.floor(seconds)
    tree:add(RESPONSE_TIME, NSTime(whole, math.floor((seconds - whole) * 1e9 + 0.5))):set_generated()
  elseif call.reply then
    tree:add(REPLY_IN, call.reply):set_generated()
  end
end

local function show_rest(shower, message, tree)
  local rest = shower.tvb:len() - shower.at
  if message.trouble then tree:add_proto_expert_info(EXPERT.malformed, "Malformed: " .. message.trouble) end
  if rest == 0 then return end
  local item = tree:add(UNREAD, shower.tvb(shower.at))
  if message.call and not message.trouble then item:add_proto_expert_info(EXPERT.dropped) end
end

local function title(message)
  local name = message.call and message.call.operation[1] or "unknown"
  if message.type == CALL then return "Call " .. name end
  local refusal = message.refusal ~= 0 and " " .. (ACCEPTED[message.refusal] or message.refusal) or ""
  return "Reply " .. name .. refusal
end

local function show_message(tvb, message, pinfo, tree)
  local words = title(message)
  local top = tree:add(tlm, tvb(message.records[1].start, message.stop - message.records[1].start), "Job manager, " .. words)
  pinfo.cols.info:append((pinfo.private.tlm_titles and "; " or "") .. words .. " (" .. message.xid .. ")")
  pinfo.private.tlm_titles = "1"
  show_records(tvb, message, top)
  local shower = Shower.new(join(tvb, message), top)
  if message.call then top:add(OPERATION, message.call.operation[1]):set_generated() end
  show_partner(message, top, pinfo)
  local trouble = trouble_of(function()
    show_header(shower, message)
    walk(shower, "tlm.", message.items)
  end)
  message.trouble = message.trouble or trouble and trouble.reason
  show_rest(shower, message, top)
  if message.type == REPLY and message.refusal ~= 0 then top:add_proto_expert_info(EXPERT.refused) end
end

local function show_continuation(tvb, start, tree)
  local top = tree:add(tlm, tvb(start), "Job manager, continuation")
  top:add_proto_expert_info(EXPERT.continuation)
end

-- With the exact number that is missing, a second look does not always come by every message again: the end of a message
-- is waited for segment by segment.
local function bytes_to_ask_for(missing)
  return missing > 2 * LONGEST_SEGMENT and missing - LONGEST_SEGMENT or DESEGMENT_ONE_MORE_SEGMENT
end

-- Shows the messages in `tvb`, and asks for more bytes if the last of them is not whole.
local function show_all(tvb, pinfo, tree)
  local is_all = pinfo.can_desegment == 0 -- also if the packet is not in the capture whole
  local start = 0
  while start < tvb:len() do
    local message
    local trouble = trouble_of(function()
      message = looks_like_message(tvb, start) and read_message(tvb, start, pinfo, is_all)
    end)
    if trouble and not is_all then
      pinfo.desegment_offset, pinfo.desegment_len = start, bytes_to_ask_for(trouble.missing)
      return
    end
    if not message then return show_continuation(tvb, start, tree) end
    remember(message, pinfo)
    show_message(tvb, message, pinfo, tree)
    start = message.stop
  end
end

function tlm.dissector(tvb, pinfo, tree)
  pinfo.cols.protocol = "TLM"
  pinfo.cols.info:clear()
  show_all(tvb, pinfo, tree)
  pinfo.cols.info:fence()
end

-- Where it looks

local ports = DissectorTable.get("tcp.port")
local registered = "20317"
ports:add(registered, tlm)
tlm.prefs.ports = Pref.range("TCP ports", registered, "Ports at which job managers listen", 65535)

function tlm.prefs_changed()
  if registered == tlm.prefs.ports then return end
  if registered ~= "" then ports:remove(registered, tlm) end
  registered = tlm.prefs.ports
  if registered ~= "" then ports:add(registered, tlm) end
end

-- On other ports a call is recognised, and all that follows in its connection is taken for the same.
tlm:register_heuristic("tcp", function(tvb, pinfo, tree)
  if tvb:len() < 44 or tvb(0, 4):uint() < LAST_FRAGMENT + 40 then return false end
  if tvb(8, 4):uint() ~= CALL or tvb(12, 4):uint() ~= 2 or not PROGRAMS[tvb(16, 4):uint()] then return false end
  pinfo.conversation = tlm
  tlm.dissector(tvb, pinfo, tree)
  return true
end)
