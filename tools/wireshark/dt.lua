-- Shows in Wireshark and tshark what devices and their servers say: commands, collections and
-- settings. The bytes are described in docs/formats.md.
--
-- To try it:      wireshark -X lua_script:dt.lua visit.pcap
-- To install it:  link or copy this file into the folder that Wireshark names under Help, About,
--                 Folders, Personal Lua Plugins.
--
-- Commands (UDP port 9099) and settings (8998, 8999) are known by their ports, a collection by the
-- command before it or by its opening message. For a collection whose beginning was not captured, or
-- whose port Wireshark gives to another protocol, choose "Decode As", DT collection. Where segments
-- arrive out of order, switch on the TCP preference "Reassemble out-of-order segments".
--
-- Filters begin with dt_command, dt_collect and dt_config; what breaks the format is an expert
-- information: dt_command.malformed, dt_collect.malformed, dt_config.malformed.

local command = Proto("dt_command", "DT command")
local collect = Proto("dt_collect", "DT collection")
local config = Proto("dt_config", "DT configuration")

local function malformed_expert(proto, name)
    local made = ProtoExpert.new(name .. ".malformed", "Malformed", expert.group.MALFORMED,
        expert.severity.ERROR)
    proto.experts = { made }
    return function(tree, reason) tree:add_proto_expert_info(made, reason) end
end

local function source_of(pinfo) return tostring(pinfo.src) .. ":" .. pinfo.src_port end
local function target_of(pinfo) return tostring(pinfo.dst) .. ":" .. pinfo.dst_port end

-- What earlier packets said. Packets are first seen in their order and later in any, so what a packet
-- needs of those before it is kept with it.
local announced -- servers ("address:port") that commands told a device to connect to
local runs      -- by TCP stream
local asked     -- by device address: its last request, and the frame that it came in
local answered  -- by frame: the request that it answers

function collect.init()
    announced, runs, asked, answered = {}, {}, {}, {}
end

-- ---- command datagram

local command_names = {
    [0] = "collection", [1] = "collection", [2] = "collection", [3] = "self-test"
}
local on_command = {
    { field = ProtoField.uint32("dt_command.length", "Length") },
    { field = ProtoField.uint32("dt_command.command", "Command", base.DEC, command_names) },
    { field = ProtoField.int32("dt_command.sequence", "Sequence") },
    { field = ProtoField.uint32("dt_command.port", "TCP port", base.DEC, nil, 0xFFFF) },
}
for _, part in ipairs(on_command) do table.insert(command.fields, part.field) end
local command_malformed = malformed_expert(command, "dt_command")

-- Why a device takes no notice of a datagram; nil when it does.
local function refusal(size, length, number, sequence)
    if length ~= math.min(size, 16) then
        return string.format("The length is %d, not %d", length, math.min(size, 16))
    end
    if number > 3 then return "Unknown command " .. number end
    if sequence < 0 then return "A negative sequence" end
end

function command.dissector(tvb, pinfo, root)
    local tree = root:add(command, tvb())
    local values = { 0, 0, 0, 0 } -- what a short datagram does not reach
    for i, part in ipairs(on_command) do
        local at = 4 * (i - 1)
        if tvb:len() >= at + 4 then
            local range = tvb(at, 4)
            values[i] = i == 3 and range:le_int() or range:le_uint()
            tree:add_le(part.field, range)
        end
    end
    local length, number, sequence, port = table.unpack(values)
    pinfo.cols.protocol = "DT"
    pinfo.cols.info = string.format("Command %d (%s), sequence %d, TCP port %d", number,
        command_names[number] or "unknown", sequence, port % 65536)
    local reason = refusal(tvb:len(), length, number, sequence)
    if reason then
        command_malformed(tree, reason)
    else
        announced[tostring(pinfo.src) .. ":" .. port % 65536] = true
    end
end

-- ---- collection messages

local type_names = { [0] = "opening", [1] = "directory", [2] = "data" }
local kind_names = { [1] = "int", [2] = "long", [3] = "string", [4] = "buffer" }
local fixed_sizes = { 17, 21, 15, 15 } -- of a frame of each kind, its bytes not counted

local f = {
    length = ProtoField.uint32("dt_collect.length", "Length"),
    type = ProtoField.uint32("dt_collect.type", "Type", base.DEC, type_names),
    sequence = ProtoField.uint32("dt_collect.sequence", "Sequence"),
    identity = ProtoField.bytes("dt_collect.identity", "Identity"),
    entry = ProtoField.none("dt_collect.entry", "Collector"),
    entry_index = ProtoField.uint32("dt_collect.entry.index", "Index"),
    entry_size = ProtoField.uint16("dt_collect.entry.size", "Size of its name"),
    entry_name = ProtoField.string("dt_collect.entry.name", "Name"),
    frame = ProtoField.none("dt_collect.frame", "Value"),
    kind = ProtoField.uint8("dt_collect.kind", "Kind", base.DEC, kind_names, 0x7F),
    last = ProtoField.bool("dt_collect.last", "Completes the value", 8, nil, 0x80),
    index = ProtoField.uint32("dt_collect.index", "Collector's index"),
    collector = ProtoField.string("dt_collect.collector", "Collector"),
    section = ProtoField.uint32("dt_collect.section", "Section"),
    key = ProtoField.uint32("dt_collect.key", "Key"),
    int = ProtoField.uint32("dt_collect.int", "Value"),
    long = ProtoField.uint64("dt_collect.long", "Value"),
    size = ProtoField.uint16("dt_collect.size", "Size"),
    piece = ProtoField.bytes("dt_collect.piece", "Piece"),
    text = ProtoField.string("dt_collect.text", "Value"),
    data = ProtoField.bytes("dt_collect.data", "Value"),
    tested = ProtoField.string("dt_collect.tested", "Tests from here on"),
    acknowledgement = ProtoField.bytes("dt_collect.acknowledgement", "Acknowledgement"),
}
for _, field in pairs(f) do table.insert(collect.fields, field) end
local malformed = malformed_expert(collect, "dt_collect")
local tcp_stream = Field.new("tcp.stream")

-- A range with nothing in it is refused at the end of the bytes: it is nil instead.
local function range_of(tvb, at, size)
    if size > 0 then return tvb(at, size) end
end

-- UTF-8 as it is; of any other text the bytes beyond ASCII as \xNN. What Wireshark makes of those may
-- be cut inside a character.
local function text_of(range)
    if not range then return "" end
    local raw = range:raw()
    if range:string(ENC_UTF_8) == raw then return raw end
    return (raw:gsub("[\128-\255]", function(byte) return string.format("\\x%02x", byte:byte()) end))
end

local function add_text(tree, field, range)
    if range then return tree:add(field, range, text_of(range)) end
    return tree:add(field, "")
end

local function add_bytes(tree, field, range)
    if range then tree:add(field, range) end
end

-- Reads a directory; returns how many collectors there are.
local function add_directory(tvb, tree, run)
    local at, count = 12, 0
    while at < tvb:len() do
        local left = tvb:len() - at
        local size = left >= 6 and tvb(at + 4, 2):le_uint() or 0
        if left < 6 + size then
            malformed(tree, string.format("A collector of %d bytes, %d left", 6 + size, left))
            return count
        end
        local entry = tree:add(f.entry, tvb(at, 6 + size))
        local index, name = tvb(at, 4):le_uint(), range_of(tvb, at + 6, size)
        entry:add_le(f.entry_index, tvb(at, 4))
        entry:add_le(f.entry_size, tvb(at + 4, 2))
        add_text(entry, f.entry_name, name)
        run.names = run.names or {}
        run.names[index] = text_of(name)
        entry:append_text(": " .. index .. " " .. run.names[index])
        at, count = at + 6 + size, count + 1
    end
    return count
end

local function joined_range(known)
    return range_of(ByteArray.new(known.joined, true):tvb("Joined value"), 0, #known.joined)
end

-- What a frame means after those before it: its collector, and the bytes of all pieces joined.
local function understand(run, value)
    local known = { collector = run.tested }
    if run.names then known.collector = run.names[value.index] end
    local id = table.concat({ value.kind, value.index, value.section, value.key }, " ")
    local open = run.open
    run.open = nil
    if open and open.id ~= id then known.trouble = "The last piece of the value before is missing" end
    if value.kind < 3 then return known end
    if not open or open.id ~= id then open = { id = id, pieces = {} } end
    table.insert(open.pieces, value.bytes and value.bytes:raw() or "")
    if not value.last then
        run.open = open
    elseif #open.pieces > 1 then
        known.joined = table.concat(open.pieces)
    end
    -- In a self-test run a string of this index names the collector whose results follow.
    if value.last and not run.names and id == "3 65535 0 0" then
        run.tested = text_of(known.joined and joined_range(known) or value.bytes)
        known.tested = true
    end
    return known
end

local function add_value(tree, tvb, value, known)
    if value.kind == 1 then return tree:add_le(f.int, tvb(13, 4)) end
    if value.kind == 2 then return tree:add_le(f.long, tvb(13, 8)) end
    tree:add_le(f.size, tvb(13, 2))
    local bytes = value.bytes
    if known.joined or not value.last then add_bytes(tree, f.piece, bytes) end
    if not value.last then return end
    if known.joined then bytes = joined_range(known) end
    if value.kind == 4 then return add_bytes(tree, f.data, bytes) end
    return add_text(tree, known.tested and f.tested or f.text, bytes)
end

local function summary_of(tvb, value)
    if value.kind == 1 then return tostring(tvb(13, 4):le_uint()) end
    if value.kind == 2 then return tostring(tvb(13, 8):le_uint64()) end
    local size = tvb(13, 2):le_uint()
    return string.format("%s%s of %d bytes", value.last and "" or "piece of a ",
        kind_names[value.kind], size)
end

-- Why no frame of a kind can stand in the bytes that are left; nil when one can.
local function frame_trouble(tvb, tag)
    local kind = tag % 128
    if not kind_names[kind] then return string.format("Unknown tag 0x%02x", tag) end
    if kind < 3 and tag < 128 then return "A number does not come in pieces" end
    if tvb:len() < fixed_sizes[kind] then
        return string.format("A frame of %d bytes or more, %d left", fixed_sizes[kind], tvb:len())
    end
    local size = kind > 2 and tvb(13, 2):le_uint() or 0
    if size > tvb:len() - fixed_sizes[kind] then
        return string.format("%d bytes of data, %d left", size, tvb:len() - fixed_sizes[kind])
    end
end

-- Adds the frame at the beginning of some bytes; returns its size, nil when it is malformed.
local function add_frame(tvb, tree, run, place)
    local tag = tvb(0, 1):uint()
    local trouble = frame_trouble(tvb, tag)
    if trouble then return malformed(tree, trouble) end
    local kind = tag % 128
    local size = fixed_sizes[kind] + (kind > 2 and tvb(13, 2):le_uint() or 0)
    local value = {
        kind = kind, last = tag >= 128, index = tvb(1, 4):le_uint(), section = tvb(5, 4):le_uint(),
        key = tvb(9, 4):le_uint(), bytes = kind > 2 and range_of(tvb, 15, size - 15) or nil
    }
    local known = run.seen[place] or understand(run, value)
    run.seen[place] = known
    local frame = tree:add(f.frame, tvb(0, size))
    frame:add(f.kind, tvb(0, 1))
    frame:add(f.last, tvb(0, 1))
    frame:add_le(f.index, tvb(1, 4))
    if known.collector then frame:add(f.collector, known.collector):set_generated() end
    frame:add_le(f.section, tvb(5, 4))
    frame:add_le(f.key, tvb(9, 4))
    add_value(frame, tvb, value, known)
    frame:append_text(string.format(": %s, section %d, key %d = %s", known.collector or value.index,
        value.section, value.key, summary_of(tvb, value)))
    if known.trouble then malformed(frame, known.trouble) end
    return size
end

local function add_frames(tvb, tree, run, place)
    local at, count = 12, 0
    while at < tvb:len() do
        local size = add_frame(tvb(at):tvb(), tree, run, place .. ":" .. at)
        if not size then break end
        at, count = at + size, count + 1
    end
    return count
end

local function add_opening(tvb, tree)
    if tvb:len() ~= 16 then
        malformed(tree, string.format("An opening of %d bytes instead of 16", tvb:len()))
        return ""
    end
    tree:add(f.identity, tvb(12, 2))
    if tvb(14, 2):le_uint() ~= 0 then malformed(tree, "The last two bytes are not 0") end
    return ", identity " .. tostring(tvb(12, 2):bytes()):lower()
end

-- Adds one whole message; returns what the list of packets says about it.
local function add_message(tvb, root, run, number)
    local kind, sequence = tvb(4, 4):le_uint(), tvb(8, 4):le_uint()
    local summary = type_names[kind] .. " " .. sequence
    local tree = root:add(collect, tvb(), "DT collection, " .. summary)
    tree:add_le(f.length, tvb(0, 4))
    tree:add_le(f.type, tvb(4, 4))
    tree:add_le(f.sequence, tvb(8, 4))
    if kind == 0 then return summary .. add_opening(tvb, tree) end
    if kind == 1 then return summary .. ", " .. add_directory(tvb, tree, run) .. " collectors" end
    if tvb:len() == 12 then return summary .. ", empty" end
    return summary .. ", " .. add_frames(tvb, tree, run, number .. ":" .. sequence) .. " values"
end

-- Why the bytes begin no message; nil when they do.
local function header_trouble(tvb)
    local length, kind = tvb(0, 4):le_uint(), tvb(4, 4):le_uint()
    if length < 12 or length > 1036 then return "A message of " .. length .. " bytes" end
    if not type_names[kind] then return "Unknown message type " .. kind end
end

-- Only the device sends messages. A command names the server; without one the bytes must tell.
local function device_of(tvb, pinfo)
    local source, target = source_of(pinfo), target_of(pinfo)
    if announced[target] then return source end
    if announced[source] then return target end
    return tvb:len() >= 12 and not header_trouble(tvb) and source or target
end

local function run_of(tvb, pinfo)
    local stream = tcp_stream()
    local id = stream and stream.value or -1
    runs[id] = runs[id] or { device = device_of(tvb, pinfo), seen = {} }
    return runs[id]
end

-- Asks for more bytes behind some place of these.
local function want(pinfo, at, count)
    pinfo.desegment_offset = at
    pinfo.desegment_len = count
end

local function add_messages(tvb, pinfo, root, run)
    local at, summaries = 0, {}
    while at < tvb:len() do
        local rest = tvb(at):tvb()
        if rest:len() < 12 then
            want(pinfo, at, DESEGMENT_ONE_MORE_SEGMENT)
            break
        end
        local trouble = header_trouble(rest)
        if trouble then
            malformed(root:add(collect, rest()), trouble)
            table.insert(summaries, trouble)
            break
        end
        local length = rest(0, 4):le_uint()
        if rest:len() < length then
            want(pinfo, at, length - rest:len())
            break
        end
        table.insert(summaries, add_message(rest(0, length):tvb(), root, run, pinfo.number))
        at = at + length
    end
    if #summaries > 0 then pinfo.cols.info = "Message: " .. table.concat(summaries, "; ") end
end

function collect.dissector(tvb, pinfo, root)
    local run = run_of(tvb, pinfo)
    pinfo.cols.protocol = "DT"
    if source_of(pinfo) == run.device then return add_messages(tvb, pinfo, root, run) end
    root:add(collect, tvb(), "DT collection, acknowledgement"):add(f.acknowledgement, tvb())
    pinfo.cols.info = string.format("Acknowledgement, %d bytes", tvb:len())
end

-- Claims the connections to a server that a command named, and those that begin with an opening.
collect:register_heuristic("tcp", function(tvb, pinfo, root)
    local opens = tvb:len() >= 8 and tvb(0, 4):le_uint() == 16 and tvb(4, 4):le_uint() == 0
    if not opens and not announced[target_of(pinfo)] then return false end
    pinfo.conversation = collect
    collect.dissector(tvb, pinfo, root)
    return true
end)

-- ---- settings

local c = {
    group = ProtoField.string("dt_config.group", "Group"),
    key = ProtoField.string("dt_config.key", "Key"),
    default = ProtoField.string("dt_config.default", "Default"),
    value = ProtoField.string("dt_config.value", "Value"),
    request = ProtoField.framenum("dt_config.request", "Answers the request in",
        base.NONE, frametype.REQUEST),
}
for _, field in pairs(c) do table.insert(config.fields, field) end
local config_malformed = malformed_expert(config, "dt_config")

local function add_request(tvb, pinfo, tree)
    local group, key, default = tvb:raw():match("^=>config ([^ ]*) ([^ ]*) (.*)$")
    if not group then return config_malformed(tree, "No request: =>config GROUP KEY DEFAULT") end
    local at = 9
    for _, part in ipairs({ { c.group, #group }, { c.key, #key }, { c.default, #default } }) do
        add_text(tree, part[1], range_of(tvb, at, part[2]))
        at = at + part[2] + 1
    end
    local name = text_of(tvb(9, #group + 1 + #key))
    asked[tostring(pinfo.src)] = { frame = pinfo.number, name = name }
    pinfo.cols.info = "Request: " .. text_of(tvb(9))
end

local function add_reply(tvb, pinfo, tree)
    answered[pinfo.number] = answered[pinfo.number] or asked[tostring(pinfo.dst)]
    local request = answered[pinfo.number]
    local size = #tvb:raw():match("^[^\0]*"):sub(1, 999) -- as far as a device reads
    local value = range_of(tvb, 0, size)
    add_text(tree, c.value, value)
    if request then tree:add(c.request, request.frame):set_generated() end
    pinfo.cols.info = "Reply: " .. (request and request.name .. " = " or "") ..
        text_of(value)
end

-- A device asks from port 8998, and only a device; a reply may come from any port.
function config.dissector(tvb, pinfo, root)
    local tree = root:add(config, tvb())
    pinfo.cols.protocol = "DT"
    if pinfo.src_port == 8998 then
        add_request(tvb, pinfo, tree)
    else
        add_reply(tvb, pinfo, tree)
    end
end

-- ---- where to look

local udp = DissectorTable.get("udp.port")
udp:add(9099, command)
udp:add(8998, config)
udp:add(8999, config)
DissectorTable.get("tcp.port"):add_for_decode_as(collect)
