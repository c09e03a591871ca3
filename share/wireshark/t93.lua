-- Shows T93 traffic in Wireshark and tshark: RM frames over TCP and UDP ("t93"), and the datagrams of a scan ("t93ddt").
-- docs/protocol.md describes both. Frames are found as the plugin finds them: a frame that the plugin drops has no
-- t93.can.id. For another port than 30000 use "Decode as", or tshark -d tcp.port==30001,t93.

local t93, ddt = Proto("t93", "T93 RM frame"), Proto("t93ddt", "T93 DDT datagram")

local function note(name, text) return ProtoExpert.new(name, text, expert.group.PROTOCOL, expert.severity.WARN) end
local function add_text(tree, field, range) -- returns the text without control characters, for a column
    local foreign = range:string(ENC_UTF_8) == range:raw() and "%c" or "[%c\x80-\xFF]"
    tree:add_packet_field(field, range, ENC_UTF_8)
    return (range:raw():gsub("%z.*", ""):gsub(foreign, "?"))
end

local BIT_RATES = { [0x02] = "50 kbit/s", [0xFE] = "100 kbit/s", [0x03] = "125 kbit/s", [0x04] = "250 kbit/s",
    [0x05] = "500 kbit/s", [0x07] = "1000 kbit/s" }
local STATUS_FLAGS = { "CAN buffer overflow", "CAN transmit timeout", "CAN error counter overflow", "CAN bus off",
    "TCP syntax error", "TCP format error", "TCP buffer overflow" } -- the flag of the lowest bit first
local COMMANDS = { [0x00] = "CAN message", [0x01] = "CAN message, time stamp", [0x02] = "CAN message, 29 bit",
    [0x03] = "CAN message, 29 bit, time stamp", [0x40] = "Identification", [0x41] = "Firmware version",
    [0x42] = "Status", [0x43] = "Status", [0x44] = "MAC address", [0x47] = "Bus load", [0x50] = "Report 50",
    [0x51] = "Report 51", [0x56] = "CAN bit rate report", [0x57] = "CAN bit rate", [0x60] = "Report 60",
    [0x61] = "Report 61", [0xA0] = "Report A0", [0xA1] = "Report A1", [0xA4] = "Bus load interval", [0xC0] = "Reset" }
local f = {
    length = ProtoField.uint8("t93.length", "Length"),
    command = ProtoField.uint8("t93.command", "Command", base.HEX, COMMANDS),
    payload = ProtoField.bytes("t93.payload", "Payload", base.SPACE),
    checksum = ProtoField.uint8("t93.checksum", "Checksum", base.HEX),
    end_marker = ProtoField.uint8("t93.end", "End marker", base.HEX),
    garbage = ProtoField.bytes("t93.garbage", "Bytes before a start marker", base.SPACE),
    cut = ProtoField.bytes("t93.cut", "Beginning of a frame", base.SPACE),
    can_id = ProtoField.uint16("t93.can.id", "Identifier", base.HEX, nil, 0x7FF),
    can_length = ProtoField.uint8("t93.can.length", "Data length"),
    can_data = ProtoField.bytes("t93.can.data", "Data", base.SPACE),
    can_time = ProtoField.bytes("t93.can.timestamp", "Time stamp", base.SPACE),
    ident = ProtoField.string("t93.ident", "Identification"),
    device = ProtoField.uint16("t93.device", "Device number"),
    firmware = ProtoField.string("t93.firmware", "Firmware version"),
    status = ProtoField.uint8("t93.status", "Status", base.HEX),
    mac = ProtoField.ether("t93.mac", "MAC address"),
    busload = ProtoField.uint16("t93.busload", "Bus load, messages per second"),
    interval = ProtoField.uint16("t93.busload.interval", "Measuring interval, ms"),
    bit_rate = ProtoField.uint8("t93.bitrate", "CAN bit rate", base.HEX, BIT_RATES),
}
for index, flag in ipairs(STATUS_FLAGS) do -- makes fields such as t93.status.can_bus_off
    f[flag] = ProtoField.bool("t93.status." .. flag:lower():gsub(" ", "_"), flag, 8, nil, 2 ^ (index - 1))
end
t93.fields = f
local e = {
    checksum = note("t93.checksum.bad", "Wrong checksum: the frame is dropped"),
    no_end = note("t93.end.missing", "No end marker: the frame is dropped"),
    can_length = note("t93.can.length.bad", "Not 0 to 8 data bytes: the application receives length 0"),
    status = note("t93.status.report", "The gateway reports trouble"),
}
t93.experts = e

-- ---- RM frames: payloads. SHOW has a function for each command. It adds the payload to the tree and returns the text of
-- the info column, or nil when the payload is too short, as in requests and confirmations. A payload of nil is empty.
local SHOW = {}

local function can_message(command, stamp_size)
    SHOW[command] = function(tree, payload, size)
        local id = size > 1 and payload(0, 2):uint() or size == 1 and payload:uint() * 256 or 0
        if payload then tree:add(f.can_id, payload(0, math.min(size, 2)), id) else tree:add(f.can_id, id) end
        local length, text = size - 2 - stamp_size, string.format("Message %03X", bit.band(id, 0x7FF))
        if length < 0 or length > 8 then
            tree:add(f.can_length, 0):set_generated():add_proto_expert_info(e.can_length)
            return text .. " [0], length " .. length .. " announced"
        end
        tree:add(f.can_length, length):set_generated()
        if stamp_size > 0 then tree:add(f.can_time, payload(2 + length)) end
        local data = length > 0 and payload(2, length)
        if data then tree:add(f.can_data, data) end
        return text .. " [" .. length .. "]" .. (data and " " .. data:bytes():tohex(false, " ") or "")
    end
end
can_message(0x00, 0)
can_message(0x01, 4)

-- Defines how a payload with one value is shown: `count` bytes at offset `at`. `read` returns the value, and its text
-- if it is not the value.
local function value(command, field, at, count, read)
    SHOW[command] = function(tree, payload, size)
        if size < at + count then return nil end
        local number, text = read(payload(at, count), tree)
        tree:add(field, payload(at, count), number)
        return COMMANDS[command] .. ": " .. (text or number)
    end
end
value(0x41, f.firmware, 2, 2, function(version) return ("%d.%02d"):format(version:raw():byte(1, 2)) end)
value(0x44, f.mac, 0, 6, function(mac) return mac:ether(), mac:bytes():tohex(true, ":") end)
value(0x47, f.busload, 0, 2, function(load) return load:le_uint(), load:le_uint() .. " frames/s" end)
value(0x57, f.bit_rate, 0, 1, function(code) return code:uint(), BIT_RATES[code:uint()] or "unknown" end)
value(0xA4, f.interval, 0, 2, function(ms) return ms:uint(), ms:uint() .. " ms" end)

local function status(flags, tree)
    local texts = {}
    for index, flag in ipairs(STATUS_FLAGS) do
        tree:add(f[flag], flags)
        if bit.band(flags:uint(), 2 ^ (index - 1)) ~= 0 then texts[#texts + 1] = flag end
    end
    if #texts > 0 then tree:add_proto_expert_info(e.status) end
    return flags:uint(), #texts > 0 and table.concat(texts, ", ") or "no error"
end
value(0x42, f.status, 0, 1, status)
value(0x43, f.status, 0, 1, status)

SHOW[0x40] = function(tree, payload, size)
    if size < 3 then return nil end
    local text = add_text(tree, f.ident, payload(0, size - 2))
    tree:add(f.device, payload(size - 2))
    return "Identification: " .. text .. ", device " .. payload(size - 2):uint()
end

-- ---- RM frames: the stream
local END, AROUND = 0x0D, 4 -- AROUND: bytes of start marker, length, checksum and end marker

local function show_frame(tree, tvb) -- shows the frame at the beginning of tvb; returns its text and size
    local length, command, wanted = tvb(1, 1):uint(), tvb(2, 1):uint(), 0
    for _, byte in ipairs({ tvb:raw(0, length + 2):byte(1, -1) }) do wanted = bit.bxor(wanted, byte) end
    local is_right, has_end = tvb(length + 2, 1):uint() == wanted, tvb(length + 3, 1):uint() == END
    -- After a wrong checksum the plugin looks for a start marker at once, also in the byte where the end marker should be.
    -- (If segments are joined at this place, a frame may be shown twice.)
    local size = (is_right or has_end) and length + AROUND or length + AROUND - 1
    local item, payload = tree:add(t93, tvb(0, size)), length > 1 and tvb(3, length - 1) or nil
    item:add(f.length, tvb(1, 1))
    item:add(f.command, tvb(2, 1))
    local text = is_right and has_end and SHOW[command] and SHOW[command](item, payload, length - 1)
    if payload and not text then item:add(f.payload, payload) end
    text = text or COMMANDS[command] or string.format("Command %02X", command)
    item:add(f.checksum, tvb(length + 2, 1))
    if size == length + AROUND then item:add(f.end_marker, tvb(length + 3, 1)) end
    if not is_right then
        item:add_proto_expert_info(e.checksum, string.format("Wrong checksum, should be 0x%02x", wanted))
        text = text .. ", wrong checksum"
    elseif not has_end then
        item:add_proto_expert_info(e.no_end)
        text = text .. ", no end marker"
    end
    item:set_text("T93, " .. text)
    return text, size
end

local function show_stream(tree, tvb) -- returns the texts, and the offset of a frame that does not end in tvb
    local bytes, texts, at = tvb:raw(), {}, 0
    while at < #bytes do
        local begin = (bytes:find("C[\1-\35]", at + 1) or bytes:find("C$", at + 1) or #bytes + 1) - 1
        if begin > at then
            texts[#texts + 1] = "Garbage"
            tree:add(t93, tvb(at, begin - at)):set_text("T93, garbage"):add(f.garbage, tvb(at, begin - at))
        end
        if begin == #bytes then return texts end
        local length = bytes:byte(begin + 2)
        if not length or begin + length + AROUND > #bytes then return texts, begin end
        local text, size = show_frame(tree, tvb(begin):tvb())
        texts[#texts + 1], at = text, begin + size
    end
    return texts
end

-- Over UDP a frame may begin in one datagram and end in the next. `waiting` has the beginning of a frame, by direction;
-- `begun` has the beginning that a datagram completes, by the number of the datagram.
local waiting, begun = {}, {}
function t93.init() waiting, begun = {}, {} end

function t93.dissector(tvb, pinfo, tree)
    local PT_UDP, SHOWN = 3, 4
    local way = tostring(pinfo.src) .. pinfo.src_port .. tostring(pinfo.dst) .. pinfo.dst_port
    local is_new_datagram = pinfo.port_type == PT_UDP and not pinfo.visited
    if is_new_datagram then begun[pinfo.number], waiting[way] = waiting[way], nil end
    local head = begun[pinfo.number]
    local whole = head and ByteArray.new(head .. tvb:bytes():tohex()):tvb("T93 frames of several datagrams") or tvb
    local texts, cut_at = show_stream(tree, whole)
    if cut_at and pinfo.can_desegment > 0 then
        pinfo.desegment_offset, pinfo.desegment_len = cut_at, DESEGMENT_ONE_MORE_SEGMENT
    elseif cut_at then
        if is_new_datagram then waiting[way] = whole(cut_at):bytes():tohex() end
        texts[#texts + 1] = "Beginning of a frame"
        tree:add(t93, whole(cut_at)):set_text("T93, " .. texts[#texts]):add(f.cut, whole(cut_at))
    end
    pinfo.cols.protocol = "T93"
    if #texts > 0 then -- a segment with the end of one frame and further frames is shown in two calls
        local text = (pinfo.private.t93 and "; " or "") .. table.concat(texts, "; ", 1, math.min(#texts, SHOWN))
        pinfo.private.t93 = "shown"
        pinfo.cols.info:set(text .. (#texts > SHOWN and string.format(" (+%d)", #texts - SHOWN) or ""))
    end
    return tvb:len()
end

DissectorTable.get("tcp.port"):add(30000, t93)
DissectorTable.get("udp.port"):add(30000, t93)

-- ---- Datagrams of a scan
local HEADER, ENTRY, REQUEST, REPLY = 4, 64, 0x80, 0x00
local d = {
    sequence = ProtoField.uint16("t93ddt.sequence", "Sequence"),
    kind = ProtoField.uint8("t93ddt.kind", "Kind", base.HEX, { [REQUEST] = "Ident request", [REPLY] = "Ident reply" }),
    count = ProtoField.uint8("t93ddt.count", "Number of entries"),
    entry = ProtoField.bytes("t93ddt.entry", "Entry"),
    address = ProtoField.ipv4("t93ddt.address", "IPv4 address"),
    role = ProtoField.uint8("t93ddt.role", "Role", base.DEC, { "client", "server" }),
    transport = ProtoField.uint8("t93ddt.transport", "Transport", base.DEC, { [0] = "TCP", [1] = "UDP" }),
    port = ProtoField.uint16("t93ddt.port", "Port"),
    mac = ProtoField.ether("t93ddt.mac", "MAC address"),
    type_text = ProtoField.string("t93ddt.type", "Type text"),
    host_name = ProtoField.string("t93ddt.hostname", "Host name"),
}
local short = note("t93ddt.short", "Shorter than it announces")
ddt.fields, ddt.experts = d, { short }

local requesters = {} -- the ports that sent requests: replies are sent to them, from any port
function ddt.init() requesters = {} end

function ddt.dissector(tvb, pinfo, tree)
    local item, size, name = tree:add(ddt, tvb()), tvb:len(), ""
    pinfo.cols.protocol, pinfo.cols.info = "T93 DDT", "Cut DDT datagram"
    if size < HEADER then
        item:add_proto_expert_info(short)
        return size
    end
    local kind, announced = tvb(2, 1):uint(), tvb(3, 1):uint()
    local present = math.min(announced, math.floor((size - HEADER) / ENTRY))
    item:add_le(d.sequence, tvb(0, 2))
    item:add(d.kind, tvb(2, 1))
    item:add(d.count, tvb(3, 1))
    if present < announced then item:add_proto_expert_info(short) end
    for at = HEADER, HEADER + (present - 1) * ENTRY, ENTRY do
        local entry = item:add(d.entry, tvb(at, ENTRY))
        entry:add(d.address, tvb(at, 4))
        entry:add(d.role, tvb(at + 4, 1))
        entry:add(d.transport, tvb(at + 5, 1))
        entry:add(d.port, tvb(at + 6, 2))
        entry:add(d.mac, tvb(at + 8, 6))
        add_text(entry, d.type_text, tvb(at + 14, 22))
        name = add_text(entry, d.host_name, tvb(at + 36, 28)) .. ", " -- a gateway has the same name in all entries
    end
    if kind == REQUEST then
        requesters[pinfo.src_port] = requesters[pinfo.src_port] or pinfo.number
        pinfo.cols.info = "Ident request " .. tvb(0, 2):le_uint()
    else
        local text = (kind == REPLY and "Ident reply: " or "Unknown kind: ") .. name .. present .. " endpoint"
        pinfo.cols.info = text .. (present == 1 and "" or "s")
    end
    return size
end

ddt:register_heuristic("udp", function(tvb, pinfo, tree)
    local requested = requesters[pinfo.dst_port]
    if not requested or pinfo.number < requested or (tvb:len() > 2 and tvb(2, 1):uint() ~= REPLY) then return false end
    ddt.dissector(tvb, pinfo, tree)
    return true
end)
DissectorTable.get("udp.port"):add(33333, ddt)
