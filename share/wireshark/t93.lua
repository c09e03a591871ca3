-- Shows T93 traffic in Wireshark and tshark: RM frames over TCP and UDP ("t93"), and the datagrams by which gateways
-- are found ("t93ddt"), as docs/protocol.md describes them. Bytes are taken apart as the plugin does it: what no host
-- gets has no t93.can.id. For another port than 30000 use "Decode as", or tshark -d tcp.port==30001,t93.

local RM_PORT, DDT_PORT = 30000, 33333
local t93, ddt = Proto("t93", "T93 RM frame"), Proto("t93ddt", "T93 DDT datagram")

local function note(name, text, group, severity)
    return ProtoExpert.new(name, text, expert.group[group], expert.severity[severity])
end

local function add_text(tree, field, range) -- gives the text up to its first zero byte, fit for a column
    tree:add_packet_field(field, range, ENC_UTF_8)
    local text, byte = range:raw():match("^[^\0]*"), "[\x80-\xBF]"
    local foreign = text:gsub("[\xC2-\xDF]" .. byte, ""):gsub("[\xE0-\xEF]" .. byte .. byte, "")
    if foreign:gsub("[\xF0-\xF4]" .. byte .. byte .. byte, ""):find("[\x80-\xFF]") then -- no UTF-8
        text = text:gsub("[\x80-\xFF]", "\xEF\xBF\xBD")
    end
    return (text:gsub("[\1-\31\127]", "?"))
end

local function count_of(count, noun) return string.format("%d %s%s", count, noun, count == 1 and "" or "s") end

-- ---- RM frames: fields

local BIT_RATES = { [0x02] = "50 kbit/s", [0xFE] = "100 kbit/s", [0x03] = "125 kbit/s", [0x04] = "250 kbit/s",
    [0x05] = "500 kbit/s", [0x07] = "1000 kbit/s" }
local STATUS_FLAGS = { "CAN buffer overflow", "CAN transmit timeout", "CAN error counter overflow", "CAN bus off",
    "TCP syntax error", "TCP format error", "TCP buffer overflow" } -- lowest bit first
local COMMANDS = {
    [0x00] = "CAN message", [0x01] = "CAN message with time stamp", [0x02] = "CAN message, 29-bit identifier",
    [0x03] = "CAN message, 29-bit identifier, time stamp", [0x40] = "Identification", [0x41] = "Firmware version",
    [0x42] = "Status", [0x43] = "Status", [0x44] = "MAC address", [0x47] = "Bus load", [0x50] = "Report 50",
    [0x51] = "Report 51", [0x56] = "CAN bit rate report", [0x57] = "CAN bit rate", [0x60] = "Report 60",
    [0x61] = "Report 61", [0xA0] = "Report A0", [0xA1] = "Report A1", [0xA4] = "Bus load measurement",
    [0xC0] = "Reset" }
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
    busload = ProtoField.uint16("t93.busload", "Bus load, frames a second"),
    interval = ProtoField.uint16("t93.busload.interval", "Measuring interval, ms"),
    bit_rate = ProtoField.uint8("t93.bitrate", "CAN bit rate", base.HEX, BIT_RATES),
}
for index, flag in ipairs(STATUS_FLAGS) do -- t93.status.can_bus_off
    f[flag] = ProtoField.bool("t93.status." .. flag:lower():gsub(" ", "_"), flag, 8, nil, 2 ^ (index - 1))
end
t93.fields = f
local e = {
    checksum = note("t93.checksum.bad", "Wrong checksum: the frame is dropped", "CHECKSUM", "ERROR"),
    no_end = note("t93.end.missing", "No end marker: the frame is dropped", "MALFORMED", "ERROR"),
    length = note("t93.length.bad", "Length 0 or above 35: no frame begins here", "MALFORMED", "WARN"),
    garbage = note("t93.garbage.skipped", "Bytes before a start marker are skipped", "MALFORMED", "WARN"),
    can_length = note("t93.can.length.bad", "Not 0 to 8 data bytes: the host gets length 0", "MALFORMED", "WARN"),
    status = note("t93.status.report", "The gateway reports trouble", "RESPONSE_CODE", "WARN"),
}
t93.experts = e

-- ---- RM frames: payloads. A function gets the tree, the payload (nil: empty), its size and whether it comes from the
-- gateway, and gives the text of the info column.

local function can_message(stamp_size)
    return function(tree, payload, size)
        local length, id = size - 2 - stamp_size, 0
        if size >= 2 then id = payload(0, 2):uint() elseif size == 1 then id = payload:uint() * 256 end
        local _ = payload and tree:add(f.can_id, payload(0, math.min(size, 2)), id) or tree:add(f.can_id, id)
        local text = string.format("Message %03X [%%d]", bit.band(id, 0x7FF))
        if length < 0 or length > 8 then
            tree:add(f.can_length, 0):set_generated():add_proto_expert_info(e.can_length)
            return text:format(0) .. ", length " .. length .. " announced"
        end
        tree:add(f.can_length, length):set_generated()
        local data = length > 0 and payload(2, length)
        if data then tree:add(f.can_data, data) end
        if stamp_size > 0 then tree:add(f.can_time, payload(2 + length, stamp_size)) end
        return text:format(length) .. (data and " " .. data:bytes():tohex(false, " ") or "")
    end
end

-- The gateway's answer to a request without payload or, with `asks`, what the PC asks for: so many bytes at least.
local function content(name, asks, least, show)
    return function(tree, payload, size, from_gateway)
        if from_gateway ~= asks and size >= least then return show(tree, payload, size) end
        if payload then tree:add(f.payload, payload) end
        return name .. (from_gateway ~= asks and ": cut" or asks and " confirmed" or "?")
    end
end

local status = content("Status", false, 1, function(tree, payload)
    local texts, item = {}, tree:add(f.status, payload(0, 1))
    for index, flag in ipairs(STATUS_FLAGS) do
        item:add(f[flag], payload(0, 1))
        if bit.band(payload(0, 1):uint(), 2 ^ (index - 1)) ~= 0 then texts[#texts + 1] = flag end
    end
    local text = #texts > 0 and table.concat(texts, ", ") or "no error"
    if #texts > 0 then item:add_proto_expert_info(e.status, "The gateway reports: " .. text) end
    return "Status: " .. text
end)

local SHOW = {
    [0x00] = can_message(0),
    [0x01] = can_message(4),
    [0x40] = content("Identification", false, 3, function(tree, payload, size)
        local text, device = add_text(tree, f.ident, payload(0, size - 2)), payload(size - 2, 2)
        tree:add(f.device, device)
        return string.format("Identification: %s, device %d", text, device:uint())
    end),
    [0x41] = content("Firmware version", false, 4, function(tree, payload)
        local version = string.format("%d.%02d", payload(2, 1):uint(), payload(3, 1):uint())
        tree:add(f.firmware, payload(2, 2), version)
        return "Firmware version " .. version
    end),
    [0x42] = status,
    [0x43] = status,
    [0x44] = content("MAC address", false, 6, function(tree, payload)
        tree:add(f.mac, payload(0, 6))
        return "MAC address " .. payload(0, 6):bytes():tohex(true, ":")
    end),
    [0x47] = content("Bus load", false, 2, function(tree, payload)
        tree:add_le(f.busload, payload(0, 2))
        return string.format("Bus load: %d frames/s", payload(0, 2):le_uint())
    end),
    [0x57] = content("CAN bit rate", true, 1, function(tree, payload)
        tree:add(f.bit_rate, payload(0, 1))
        return "CAN bit rate " .. (BIT_RATES[payload(0, 1):uint()] or "unknown")
    end),
    [0xA4] = content("Bus load measurement", true, 2, function(tree, payload)
        tree:add(f.interval, payload(0, 2))
        return string.format("Bus load measurement every %d ms", payload(0, 2):uint())
    end),
}

-- ---- RM frames: the stream

local START, END, LONGEST = 0x43, 0x0D, 35 -- what a length byte may say
local AROUND = 4                            -- start marker, length, checksum, end marker

local function show_frame(tree, tvb, at, length, from_gateway) -- gives the frame's size and text
    local wanted, check_at, command = 0, at + 2 + length, tvb(at + 2, 1):uint()
    for _, byte in ipairs({ tvb:raw(at, length + 2):byte(1, -1) }) do wanted = bit.bxor(wanted, byte) end
    local is_right, last = tvb(check_at, 1):uint() == wanted, tvb(check_at + 1, 1):uint()
    -- Behind a wrong checksum the plugin hunts at once. (Where such a byte ends what was put together from several
    -- segments, Wireshark may show what follows twice.)
    local next_begins = not is_right and last == START
    local size = length + AROUND - (next_begins and 1 or 0)
    local item, payload = tree:add(t93, tvb(at, size)), length > 1 and tvb(at + 3, length - 1) or nil
    item:add(f.length, tvb(at + 1, 1))
    item:add(f.command, tvb(at + 2, 1))
    local text = COMMANDS[command] or string.format("Command %02X", command)
    if is_right and last == END and SHOW[command] then
        text = SHOW[command](item, payload, length - 1, from_gateway)
    elseif payload then
        item:add(f.payload, payload)
    end
    local check_item = item:add(f.checksum, tvb(check_at, 1))
    local end_item = next_begins and check_item or item:add(f.end_marker, tvb(check_at + 1, 1))
    if not is_right then
        check_item:append_text(string.format(", should be 0x%02x", wanted)):add_proto_expert_info(e.checksum)
        text = text .. ", wrong checksum"
    end
    if last ~= END then
        end_item:add_proto_expert_info(e.no_end)
        text = text .. ", no end marker"
    end
    item:set_text("T93, " .. text)
    return size, text
end

-- Gives the texts of what was shown, and where a frame begins that does not end here; with the number of bytes that it
-- lacks when its length is known.
local function show_stream(tree, tvb, from_gateway)
    local bytes, texts, at, garbage_at, garbage_note = tvb:raw(), {}, 0, 0, e.garbage
    local function show_garbage() -- before this place
        if at > garbage_at then
            texts[#texts + 1] = "Garbage, " .. count_of(at - garbage_at, "byte")
            local item = tree:add(t93, tvb(garbage_at, at - garbage_at)):set_text("T93, " .. texts[#texts])
            item:add(f.garbage, tvb(garbage_at, at - garbage_at)):add_proto_expert_info(garbage_note)
        end
        garbage_note = e.garbage
    end
    while true do
        at = (bytes:find(string.char(START), at + 1, true) or #bytes + 1) - 1
        local length = bytes:byte(at + 2)
        local is_frame = length and length > 0 and length <= LONGEST
        if at == #bytes then
            show_garbage()
            return texts
        elseif not length or is_frame and at + length + AROUND > #bytes then
            show_garbage()
            return texts, at, length and at + length + AROUND - #bytes
        elseif is_frame then
            show_garbage()
            local size, text = show_frame(tree, tvb, at, length, from_gateway)
            texts[#texts + 1] = text
            at, garbage_at = at + size, at + size
        elseif length == START then -- a second start marker restarts
            at = at + 1
        else
            at, garbage_note = at + 2, e.length
        end
    end
end

-- Over UDP a frame may begin in one datagram and end in the next: what waits in each direction, and what the datagram
-- of a number was found to go on with.
local waiting, begun = {}, {}
function t93.init() waiting, begun = {}, {} end

function t93.dissector(tvb, pinfo, tree)
    local PT_UDP, SHOWN = 3, 4
    local way = string.format("%s %d %s %d", tostring(pinfo.src), pinfo.src_port, tostring(pinfo.dst), pinfo.dst_port)
    local is_udp = pinfo.port_type == PT_UDP
    if is_udp and not pinfo.visited then begun[pinfo.number], waiting[way] = waiting[way], nil end
    local head = is_udp and begun[pinfo.number]
    local whole = head and ByteArray.new(head .. tvb:bytes():tohex()):tvb("T93 frames of several datagrams") or tvb
    local texts, cut_at, missing = show_stream(tree, whole, pinfo.src_port == pinfo.match)
    if cut_at and pinfo.can_desegment > 0 then
        pinfo.desegment_offset, pinfo.desegment_len = cut_at, missing or DESEGMENT_ONE_MORE_SEGMENT
    elseif cut_at then
        if is_udp and not pinfo.visited then waiting[way] = whole(cut_at):bytes():tohex() end
        texts[#texts + 1] = "Beginning of a frame"
        tree:add(t93, whole(cut_at)):set_text("T93, " .. texts[#texts]):add(f.cut, whole(cut_at))
    end
    pinfo.cols.protocol = "T93"
    if #texts > 0 then -- a segment with the end of one frame and others behind it is shown in two calls
        local text = (pinfo.private.t93 and "; " or "") .. table.concat(texts, "; ", 1, math.min(#texts, SHOWN))
        pinfo.private.t93 = "shown"
        pinfo.cols.info:set(text .. (#texts > SHOWN and string.format(" (+%d)", #texts - SHOWN) or ""))
    end
    return tvb:len()
end

DissectorTable.get("tcp.port"):add(RM_PORT, t93)
DissectorTable.get("udp.port"):add(RM_PORT, t93)

-- ---- Detection datagrams

local HEADER, ENTRY, REQUEST, REPLY = 4, 64, 0x80, 0x00
local ROLES, TRANSPORTS = { "client", "server" }, { [0] = "TCP", [1] = "UDP" }
local d = {
    sequence = ProtoField.uint16("t93ddt.sequence", "Sequence"),
    kind = ProtoField.uint8("t93ddt.kind", "Kind", base.HEX, { [REQUEST] = "Ident request", [REPLY] = "Ident reply" }),
    count = ProtoField.uint8("t93ddt.count", "Number of entries"),
    entry = ProtoField.bytes("t93ddt.entry", "Entry"),
    address = ProtoField.ipv4("t93ddt.address", "IPv4 address"),
    role = ProtoField.uint8("t93ddt.role", "Role", base.DEC, ROLES),
    transport = ProtoField.uint8("t93ddt.transport", "Transport", base.DEC, TRANSPORTS),
    port = ProtoField.uint16("t93ddt.port", "Port"),
    mac = ProtoField.ether("t93ddt.mac", "MAC address"),
    type_text = ProtoField.string("t93ddt.type", "Type text"),
    host_name = ProtoField.string("t93ddt.hostname", "Host name"),
}
local short = note("t93ddt.short", "Shorter than it announces", "MALFORMED", "WARN")
ddt.fields, ddt.experts = d, { short }

local function show_entry(tree, entry) -- gives the host name
    local item = tree:add(d.entry, entry)
    item:add(d.address, entry(0, 4))
    item:add(d.role, entry(4, 1))
    item:add(d.transport, entry(5, 1))
    item:add(d.port, entry(6, 2))
    item:add(d.mac, entry(8, 6))
    add_text(item, d.type_text, entry(14, 22))
    local name = add_text(item, d.host_name, entry(36, 28))
    item:set_text(string.format("Entry: %s:%d, %s %s, %s", entry(0, 4):ipv4(), entry(6, 2):uint(),
        TRANSPORTS[entry(5, 1):uint()] or "invalid", ROLES[entry(4, 1):uint()] or "unknown", name))
    return name
end

local askers = {} -- ports from which requests were sent: replies come to them, from any port
function ddt.init() askers = {} end

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
    local count_item = item:add(d.count, tvb(3, 1))
    for index = 1, present do
        name = show_entry(item, tvb(HEADER + (index - 1) * ENTRY, ENTRY)) .. ", " -- the same in all, from a gateway
    end
    if present < announced then
        count_item:add_proto_expert_info(short, string.format("Announces %d entries, holds %d", announced, present))
    end
    if kind == REQUEST then
        askers[pinfo.src_port] = math.min(askers[pinfo.src_port] or pinfo.number, pinfo.number)
        pinfo.cols.info = "Ident request " .. tvb(0, 2):le_uint()
    else
        local kind_text = kind == REPLY and "Ident reply: " or "Unknown kind: "
        pinfo.cols.info = kind_text .. name .. count_of(present, "endpoint")
    end
    return size
end

ddt:register_heuristic("udp", function(tvb, pinfo, tree)
    local asked = askers[pinfo.dst_port]
    if not asked or pinfo.number < asked or (tvb:len() > 2 and tvb(2, 1):uint() ~= REPLY) then return false end
    ddt.dissector(tvb, pinfo, tree)
    return true
end)
DissectorTable.get("udp.port"):add(DDT_PORT, ddt)
