-- Wireshark dissector for the packages between ftclient's clients and their servers.
-- docs/wire-format.md has the bytes, docs/wireshark.md the installation and the use.

local HEAD_BYTES = 12
local MARK = "\1\0\0\0"
local TOO_LONG = 0x500000 -- the client ends a link with a package of so many bytes
local LONGEST_BODY = 0x7FFFFFFF - HEAD_BYTES
local HEARTBEAT = "HB\0"
local TWO_TO_32 = 4294967296

local SHOWN_PACKAGES = 4 -- in the column Info
local SHOWN_TEXT = 32 -- bytes of a body there

local BAD, GOOD, UNVERIFIED = 0, 1, 2

local ftclient = Proto("ftclient", "ftclient packages")

ftclient.prefs.ports = Pref.range("TCP ports of servers", "",
  "Ports whose links are always taken for ftclient's. Others are recognised by their packages, " ..
  "or chosen with Decode As.", 65535)

local fields = {
  direction = ProtoField.string("ftclient.direction", "Direction"),
  count = ProtoField.uint32("ftclient.count", "Packages"),
  mark = ProtoField.uint32("ftclient.mark", "Mark"),
  length = ProtoField.uint32("ftclient.length", "Body length", base.DEC, nil, 0, "Bytes"),
  check_sum = ProtoField.uint32("ftclient.checksum", "Checksum", base.HEX),
  status = ProtoField.uint8("ftclient.checksum.status", "Checksum status", base.DEC,
    {[BAD] = "Bad", [GOOD] = "Good", [UNVERIFIED] = "Unverified"}),
  calculated = ProtoField.uint32("ftclient.checksum.calculated", "Calculated checksum", base.HEX),
  kind = ProtoField.string("ftclient.kind", "Kind"),
  question = ProtoField.uint8("ftclient.question", "Balance question", base.DEC_HEX),
  body = ProtoField.bytes("ftclient.body", "Body"),
  text = ProtoField.string("ftclient.text", "Text", base.UNICODE),
  rest = ProtoField.bytes("ftclient.rest", "Not cut into packages"),
}
ftclient.fields = fields

local experts = {
  bad_sum = ProtoExpert.new("ftclient.checksum.bad",
    "Wrong checksum: the client drops such a package",
    expert.group.CHECKSUM, expert.severity.ERROR),
  impossible = ProtoExpert.new("ftclient.length.impossible",
    "Impossible length: the link ends here, unless the capture lacks bytes before",
    expert.group.MALFORMED, expert.severity.ERROR),
  too_long = ProtoExpert.new("ftclient.length.too_long",
    "Package of 5 MiB or more: the client ends a link that brings one",
    expert.group.PROTOCOL, expert.severity.WARN),
  mark = ProtoExpert.new("ftclient.mark.unusual",
    "Mark is not 1: receivers do not mind, but perhaps no package begins here",
    expert.group.PROTOCOL, expert.severity.NOTE),
}
ftclient.experts = experts

-- Flows, which are one direction of a link each, that a header has ended; frames of data behind it.
local ended_flows, frames_behind = {}, {}

function ftclient.init()
  ended_flows, frames_behind = {}, {}
end

-- The sum is low + high * 2^32: a number here is exact to 53 bits only, and the sum has 64.
local function calculate(body)
  local low, high = 0, 0
  body = body .. ("\0"):rep(-#body % 4)
  for i = 1, #body, 4 do
    local a, b, c, d = body:byte(i, i + 3)
    low = low + ((a * 256 + b) * 256 + c) * 256 + d
    if a >= 0x80 then high = high - 1 end
    if low >= TWO_TO_32 then low, high = low - TWO_TO_32, high + 1 end
    while high > 0 do -- the sum is above 2^32 - 1
      low, high = low + high, 0
      if low >= TWO_TO_32 then low, high = low - TWO_TO_32, 1 end
    end
  end
  return TWO_TO_32 - 1 - low
end

-- UTF-8 without control characters other than tabs and line ends: no overlong form, no surrogate.
local function is_text(bytes)
  if bytes == "" or bytes:find("[%z\1-\8\11\12\14-\31\127]") then return false end
  if bytes:find("\224[\128-\159]") or bytes:find("\237[\160-\191]") then return false end
  if bytes:find("\240[\128-\143]") or bytes:find("\244[\144-\191]") then return false end
  local rest = bytes:gsub("\194[\160-\191]", "."):gsub("[\195-\223][\128-\191]", ".")
  rest = rest:gsub("[\224-\239][\128-\191][\128-\191]", ".")
  rest = rest:gsub("[\240-\244][\128-\191][\128-\191][\128-\191]", ".")
  return not rest:find("[\128-\255]")
end

local function quote(text)
  local cut = text
  if #text > SHOWN_TEXT then
    cut = text:sub(1, SHOWN_TEXT):gsub("[\192-\255][\128-\191]*$", "") .. "..."
  end
  return '"' .. cut:gsub("[\t\r\n]", {["\t"] = "\\t", ["\r"] = "\\r", ["\n"] = "\\n"}) .. '"'
end

local tcp_ports = DissectorTable.get("tcp.port")

local function is_server_port(port)
  return tostring(tcp_ports:get_dissector(port)) == ftclient.name
end

-- A server is known by its port. When the ports tell nothing, its is the lower one.
local function is_from_server(pinfo)
  local is_server = is_server_port(pinfo.src_port)
  if is_server ~= is_server_port(pinfo.dst_port) then return is_server end
  return pinfo.src_port < pinfo.dst_port
end

local function name_kind(package, from_server)
  local body = package.body
  if body:sub(1, #HEARTBEAT) == HEARTBEAT then return "heartbeat" end
  if not from_server and #body == 2 and body:byte(1) == 1 then return "balance question" end
  return "data"
end

-- Takes apart what is there of the package at the offset, whose header is there as a whole.
local function read_package(tvb, offset, from_server)
  local there = tvb:len() - offset
  local package = {offset = offset, body_len = tvb(offset + 4, 4):uint()}
  package.has_mark = tvb:raw(offset, 4) == MARK
  package.sum = tvb(offset + 8, 4):uint()
  package.length = HEAD_BYTES + package.body_len
  package.too_long = package.length >= TOO_LONG
  package.impossible = package.body_len > LONGEST_BODY
  package.ends_link = package.impossible or (package.too_long and from_server)
  package.shown = package.ends_link and HEAD_BYTES or math.min(package.length, there)
  package.is_whole = package.shown == package.length
  if package.is_whole then
    package.body = tvb:raw(offset + HEAD_BYTES, package.body_len)
    package.calculated = calculate(package.body)
    package.kind = name_kind(package, from_server)
  end
  return package
end

-- Without reassembly many segments begin within a package.
local function begins_package(tvb, offset, can_wait)
  return tvb:len() - offset >= HEAD_BYTES and (can_wait or tvb:raw(offset, 4) == MARK)
end

-- The packages in these bytes, and where they end; asks for more bytes if the last is not whole.
local function cut(tvb, pinfo, from_server)
  local packages, offset, can_wait = {}, 0, pinfo.can_desegment > 0
  local function wait_for(bytes)
    pinfo.desegment_offset, pinfo.desegment_len = offset, bytes
    return packages, tvb:len()
  end

  while begins_package(tvb, offset, can_wait) do
    local package = read_package(tvb, offset, from_server)
    local missing = package.ends_link and 0 or package.length - (tvb:len() - offset)
    if missing > 0 and can_wait then
      -- The link may end over a long one, which is never whole then.
      if package.too_long then table.insert(packages, package) end
      return wait_for(missing)
    end
    table.insert(packages, package)
    offset = offset + package.shown
    if package.ends_link then return packages, offset end
  end
  if offset < tvb:len() and can_wait then return wait_for(DESEGMENT_ONE_MORE_SEGMENT) end
  return packages, offset
end

local function describe(package)
  if package.impossible then return "impossible length" end
  local text = package.body_len .. (package.body_len == 1 and " byte" or " bytes")
  if package.too_long then text = text .. ", too long" end
  if not package.is_whole then return text .. ", incomplete" end
  if package.kind == "heartbeat" then
    text = package.kind
  elseif package.kind == "balance question" then
    text = package.kind .. " " .. package.body:byte(2)
  elseif is_text(package.body) then
    text = text .. " " .. quote(package.body)
  end
  if package.calculated ~= package.sum then text = text .. ", wrong checksum" end
  return text
end

local function show_check_sum(tree, package, range)
  local item = tree:add(fields.check_sum, range)
  if not package.is_whole then
    tree:add(fields.status, range, UNVERIFIED):set_generated()
  elseif package.calculated == package.sum then
    tree:add(fields.status, range, GOOD):set_generated()
  else
    tree:add(fields.status, range, BAD):set_generated()
    tree:add(fields.calculated, range, package.calculated):set_generated()
    item:add_proto_expert_info(experts.bad_sum)
  end
end

local function show_body(tree, package, range)
  tree:add(fields.body, range)
  if package.kind == "balance question" then
    tree:add(fields.question, range(1, 1))
  elseif is_text(package.body) then
    tree:add(fields.text, range, package.body)
  end
end

local function show_package(root, tvb, package)
  local range = tvb(package.offset, package.shown)
  local tree = root:add(range, "Package: " .. describe(package))
  local mark = tree:add_le(fields.mark, range(0, 4))
  if not package.has_mark then mark:add_proto_expert_info(experts.mark) end
  local length = tree:add(fields.length, range(4, 4))
  if package.impossible then
    length:add_proto_expert_info(experts.impossible)
  elseif package.too_long then
    length:add_proto_expert_info(experts.too_long)
  end
  show_check_sum(tree, package, range(8, 4))
  if package.is_whole then tree:add(fields.kind, range, package.kind):set_generated() end
  if package.is_whole and package.body_len > 0 then
    show_body(tree, package, range(HEAD_BYTES))
  elseif package.shown > HEAD_BYTES then
    tree:add(fields.body, range(HEAD_BYTES))
  end
end

local function summarise(packages)
  if #packages == 0 then return "no package begins here" end
  local texts = {}
  for i, package in ipairs(packages) do
    if i > SHOWN_PACKAGES then
      table.insert(texts, "...")
      break
    end
    table.insert(texts, describe(package))
  end
  local text = table.concat(texts, ", ")
  return #packages > 1 and #packages .. " packages: " .. text or text
end

-- Bytes may be handed over in several calls for one frame.
local function show_info(pinfo, text)
  pinfo.cols.protocol = "ftclient"
  pinfo.cols.info:clear()
  local before = tostring(pinfo.cols.info)
  pinfo.cols.info:append((before:find("[^ %]] *$") and "; " or "") .. text)
  pinfo.cols.info:fence()
end

-- Whether a package begins these bytes, as far as it is there.
local function is_ours(tvb)
  if tvb:len() < HEAD_BYTES or tvb:raw(0, 4) ~= MARK then return false end
  local length = HEAD_BYTES + tvb(4, 4):uint()
  if length >= TOO_LONG then return false end
  if tvb:len() < length then return true end
  return calculate(tvb:raw(HEAD_BYTES, length - HEAD_BYTES)) == tvb(8, 4):uint()
end

-- A capture without the end of one link may hold another one between the same ports.
local function is_behind_end(tvb, pinfo, flow)
  if not pinfo.visited then
    if ended_flows[flow] and is_ours(tvb) then ended_flows[flow] = nil end
    frames_behind[pinfo.number] = ended_flows[flow]
  end
  return frames_behind[pinfo.number]
end

local function dissect(tvb, pinfo, root)
  local from_server = is_from_server(pinfo)
  local direction = from_server and "from server" or "from client"
  local flow = ("%s %d %s %d"):format(pinfo.src, pinfo.src_port, pinfo.dst, pinfo.dst_port)
  local packages, offset = {}, 0
  local is_over = is_behind_end(tvb, pinfo, flow)
  if not is_over then packages, offset = cut(tvb, pinfo, from_server) end
  if #packages == 0 and offset == tvb:len() then return offset end

  local text = is_over and "data behind the end of the link" or summarise(packages)
  local tree = root:add(ftclient, tvb(), "ftclient, " .. direction .. ": " .. text)
  tree:add(fields.direction, direction):set_generated()
  tree:add(fields.count, #packages):set_generated()
  for _, package in ipairs(packages) do
    show_package(tree, tvb, package)
    if package.ends_link and package.has_mark then ended_flows[flow] = true end
  end
  if offset < tvb:len() then tree:add(fields.rest, tvb(offset)) end
  show_info(pinfo, text)
  return tvb:len()
end

ftclient.dissector = dissect

-- Not by way of ftclient.dissector: a dissector that another one calls cannot ask for more bytes.
ftclient:register_heuristic("tcp", function(tvb, pinfo, root)
  if not is_ours(tvb) then return false end
  pinfo.conversation = ftclient
  dissect(tvb, pinfo, root)
  return true
end)

tcp_ports:add_for_decode_as(ftclient)

local chosen_ports = ""

function ftclient.prefs_changed()
  if chosen_ports ~= "" then tcp_ports:remove(chosen_ports, ftclient) end
  chosen_ports = ftclient.prefs.ports
  if chosen_ports ~= "" then tcp_ports:add(chosen_ports, ftclient) end
end
