-- Dissector of the wire of Korvo for Wireshark and tshark; docs/protocol.md describes the messages.
--
--   tshark -X lua_script:korvo.lua -r capture.pcapng -Y korvo
--
-- Client and manager ports are those of the preferences, or of "Decode As".  A fetch of a document is led back to the HIT
-- that it is for: the oldest one with the same Document Manager, record type and number that has none yet.
local korvo = Proto("korvo", "Korvo search service")

korvo.prefs.tcp = Pref.range("TCP ports", "8001,8011,8021", "client ports of daemons and managers", 65535)
korvo.prefs.udp = Pref.range("UDP ports", "8002,8012,8022", "admin ports", 65535)

local f = korvo.fields
f.message = ProtoField.string("korvo.message", "Message")
f.command = ProtoField.string("korvo.command", "Command")
f.field = ProtoField.string("korvo.field", "Field")
f.predicate = ProtoField.string("korvo.predicate", "Predicate")
f.pair = ProtoField.string("korvo.pair", "Document field")
f.text = ProtoField.string("korvo.text", "Text")
f.hit = ProtoField.framenum("korvo.hit_in", "Hit in frame")
f.fetch = ProtoField.framenum("korvo.fetch_in", "Fetched in frame")
for name, title in pairs({ searchgroup = "Group", rectype = "Record type", macrofile = "Macro" }) do
  f[name] = ProtoField.string("korvo." .. name, title)
end
for name, title in pairs({ docnum = "Document", maxhits = "Most hits", seqnum = "Sequence number" }) do
  f[name] = ProtoField.uint32("korvo." .. name, title)
end

local RECORD = 40960 -- bytes of the longest record

local hits    -- key to the hits that have no fetch yet
local hit_of  -- fetch, by its place, to the frame of its hit
local fetch_of -- hit, by its place, to the frame of its fetch

function korvo.init()
  hits, hit_of, fetch_of = {}, {}, {}
end

local function place(pinfo, offset)
  return pinfo.number .. ":" .. offset
end

-- Once for each message, in the order of the capture.
local function lead_back(pinfo, offset, seen)
  if pinfo.visited then
    return
  end
  local key = (seen.SEARCHGROUP or "") .. "\t" .. (seen.RECTYPE or "") .. "\t" .. (tonumber(seen.DOCNUM) or 0)
  hits[key] = hits[key] or {}
  if seen.COMMAND == "HIT" and seen.SEARCHGROUP then
    table.insert(hits[key], { frame = pinfo.number, place = place(pinfo, offset) })
  elseif seen.COMMAND == "GETDOC" and hits[key][1] then
    local hit = table.remove(hits[key], 1)
    hit_of[place(pinfo, offset)] = hit.frame
    fetch_of[hit.place] = pinfo.number
  end
end

-- Adds the fields of a header; returns where the predicate begins, from 0, or the end.
local function add_header(tvb, line, tree, seen)
  local at = 1
  while line:sub(at, at + 1) == "\t@" do
    local stop = line:find("[\t\r\n]", at + 1)
    local name, value = line:sub(at + 2, (stop or 0) - 1):match("^([^=]*)=(.*)$")
    if not stop or not name or name == "OPER" then
      break
    end
    local item = f[name:lower()]
    local range = tvb(at, stop - at - 1)
    if name == "COMMAND" then
      tree:add(f.command, range, value)
    elseif item and (name == "DOCNUM" or name == "MAXHITS" or name == "SEQNUM") then
      tree:add(item, range, math.min(tonumber(value:match("^%d+")) or 0, 2147483647))
    elseif item and (name == "SEARCHGROUP" or name == "RECTYPE" or name == "MACROFILE") then
      tree:add(item, range, value)
    else
      tree:add(f.field, range, name .. "=" .. value)
    end
    seen[name] = value
    at = stop
  end
  return at - 1
end

-- What stands behind the header of a HIT is a document, and of any other message one text.
local function add_rest(tvb, line, tree, from, seen)
  local rest = line:sub(from + 1)
  if rest == "\n" or rest == "" then
    return
  end
  if seen.COMMAND ~= "HIT" and seen.COMMAND ~= "STARTUPANNOUNCEMENT" and seen.COMMAND ~= "SETDEBUGLEVEL" then
    tree:add(f.predicate, tvb(from, #line - from - 1), (rest:gsub("\n$", "")))
    return
  end
  for begin, pair in rest:gmatch("()\t([^\t\n]+)") do
    tree:add(f.pair, tvb(from + begin, #pair), pair)
  end
end

local function add_message(tvb, offset, length, pinfo, tree, names)
  local range = tvb(offset, length)
  local line = range:raw()
  local seen = {}
  local subtree = tree:add(f.message, range, (line:gsub("\n$", "")))
  local from = add_header(range:tvb(), line, subtree, seen)
  if not seen.COMMAND then
    subtree:add(f.text, range, (line:gsub("\n$", "")))
    table.insert(names, "text")
    return
  end
  add_rest(range:tvb(), line, subtree, from, seen)
  lead_back(pinfo, offset, seen)
  local hit, fetch = hit_of[place(pinfo, offset)], fetch_of[place(pinfo, offset)]
  if hit then
    subtree:add(f.hit, hit):set_generated()
  end
  if fetch then
    subtree:add(f.fetch, fetch):set_generated()
  end
  table.insert(names, seen.COMMAND)
end

function korvo.dissector(tvb, pinfo, root)
  pinfo.cols.protocol = "KORVO"
  local tree = root:add(korvo, tvb())
  local names, offset = {}, 0
  while offset < tvb:len() do
    local stop = tvb:raw(offset):find("\n", 1, true)
    local left = tvb:len() - offset
    -- A line that goes on in the next segment; a page need not end with a newline.
    if not stop and left < RECORD and pinfo.can_desegment > 0 and tvb:raw(offset, 1) == "\t" then
      pinfo.desegment_offset = offset
      pinfo.desegment_len = DESEGMENT_ONE_MORE_SEGMENT
      return
    end
    add_message(tvb, offset, stop or left, pinfo, tree, names)
    offset = offset + (stop or left)
  end
  pinfo.cols.info = table.concat(names, ", ")
end

DissectorTable.get("tcp.port"):add(korvo.prefs.tcp, korvo)
DissectorTable.get("udp.port"):add(korvo.prefs.udp, korvo)
