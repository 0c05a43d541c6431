-- A dissector of the BLE SDK protocol for Wireshark and tshark: joins packets to messages and names what is in them. The
-- names come from kzbleTable.lua, which lies beside this file. README.md says how to get a capture.
--
-- A captured frame, of link type USER0 (147):
--   0  1  version, 1
--   1  1  event: 0 connected, 1 disconnected, 2 packet, 3 descriptor written
--   2  1  direction: 0 to the camera, 1 from the camera
--   3  1  stream
--   4  4  connection, big-endian
--   8     the packet, or the value of the descriptor; connected: address (6), device type (1), 1 if the camera is the central
local here = debug.getinfo(1, "S").source:match("^@(.*[/\\])") or ""
local t = dofile(here .. "kzbleTable.lua")

local kzble = Proto("kzble", "BLE SDK protocol")
local HEADER, ANY, ANSWER_BIT = 8, -1, 0x80
local CONNECTED, PACKET, GATE = 0, 2, 3

local stream_names = {}
for id, stream in pairs(t.streams) do
    stream_names[id] = stream.name
end

local f = {
    version = ProtoField.uint8("kzble.version", "Version"),
    event = ProtoField.uint8("kzble.event", "Event", base.DEC, {[0] = "connected", "disconnected", "packet", "descriptor"}),
    direction = ProtoField.uint8("kzble.direction", "Direction", base.DEC, {[0] = "to the camera", "from the camera"}),
    stream = ProtoField.uint8("kzble.stream", "Stream", base.DEC, stream_names),
    connection = ProtoField.uint32("kzble.connection", "Connection"),
    device = ProtoField.string("kzble.device", "Device"),
    form = ProtoField.string("kzble.form", "Packet"),
    packet = ProtoField.bytes("kzble.packet", "Bytes"),
    problem = ProtoField.string("kzble.problem", "Problem"),
    kind = ProtoField.string("kzble.kind", "Kind"),
    name = ProtoField.string("kzble.name", "Name"),
    request = ProtoField.framenum("kzble.request_in", "Request in", base.NONE, frametype.REQUEST),
    id = ProtoField.uint8("kzble.id", "Id", base.HEX),
    action = ProtoField.uint8("kzble.action", "Action", base.HEX),
    result = ProtoField.uint8("kzble.result", "Result", base.DEC, t.results),
    code = ProtoField.uint8("kzble.code", "Code", base.DEC, t.sensorResults),
    parameter = ProtoField.string("kzble.parameter", "Parameter"),
    setting = ProtoField.string("kzble.setting", "Setting"),
    status = ProtoField.string("kzble.status", "Status field"),
    payload = ProtoField.bytes("kzble.payload", "Payload"),
}
kzble.fields = {}
for name, field in pairs(f) do
    kzble.fields[name] = field
end

-- ---------------------------------------------------------------- packets to messages

local progress = {}  -- by connection and stream: the message of which packets are missing
local requests = {}  -- by connection, answer stream and first bytes: frame of the request that has no answer yet
local frames = {}    -- by frame: what it completed, so that a frame that is looked at again is shown alike

function kzble.init()
    progress, requests, frames = {}, {}, {}
end

-- Length of the header, and of the message that a first packet announces.
local function read_header(packet)
    local first = packet:get_index(0)
    if first >= 0x80 then
        return "continuation " .. first % 16, 1, nil
    elseif first < 0x20 then
        return "simple", 1, first
    elseif first < 0x40 and packet:len() > 1 then
        return "extended", 2, (first - 0x20) * 256 + packet:get_index(1)
    elseif first == 0x40 and packet:len() > 2 then
        return "long", 3, packet:get_index(1) * 256 + packet:get_index(2)
    end
    return "unknown form", 1, nil
end

-- What the packet does to the message of its stream: {form, header, message when it is complete, first: the message is all
-- in this packet, problem}.
local function join(key, packet)
    local form, header, length = read_header(packet)
    local done = {form = form, header = header}
    local current = progress[key]
    if length then
        done.problem = current and "the message before was not finished" or nil
        current = {length = length, bytes = ByteArray.new(), counter = 0}
        done.first = true
    elseif not current or form == "unknown form" then
        done.problem = form == "unknown form" and form or "continues nothing"
        return done
    elseif packet:get_index(0) % 16 ~= current.counter % 16 then
        done.problem = "counter " .. current.counter % 16 .. " expected"
    end
    current.counter = done.first and 0 or current.counter + 1
    local room = math.min(packet:len() - header, current.length - current.bytes:len())
    if room > 0 then
        current.bytes:append(packet:subset(header, room))
    end
    local complete = current.bytes:len() >= current.length
    progress[key] = not complete and current or nil
    done.message = complete and current.bytes or nil
    done.missing = current.length - current.bytes:len()
    return done
end

-- ---------------------------------------------------------------- messages to names

local function find(rows, message, bits)
    local by_first = message:len() > 0 and rows and rows[message:get_index(0)]
    if not by_first then
        return rows and rows[ANY] and message:len() > 0 and message:get_index(0) < 0xf0 and rows[ANY][ANY] or nil
    end
    for second, row in pairs(by_first) do
        if second == ANY or (message:len() > 1 and message:get_index(1) == (bits and second % 128 + bits or second)) then
            return row
        end
    end
end

local function request_key(connection, stream, message, bits)
    local second = message:len() > 1 and message:get_index(0) >= 0xf0 and (message:get_index(1) % 128 + bits) or 0
    return connection .. ":" .. stream .. ":" .. message:get_index(0) .. ":" .. second
end

-- Kind, row, and frame of the request. Some answers look like pushes: they are answers while their request is open.
local function name(connection, stream, message, number)
    if message:len() == 0 then
        return "empty message"
    end
    local interface = t.interfaces[stream]
    if interface then
        requests[request_key(connection, interface.answer, message, ANSWER_BIT)] = number
        return "request", find(t.requests[stream], message)
    end
    for request_stream, candidate in pairs(t.interfaces) do
        if candidate.answer == stream then
            local key = request_key(connection, stream, message, ANSWER_BIT)
            local asked = requests[key]
            local push = t.pushes[stream] and find(t.pushes[stream], message)
            if push and not asked then
                return "push", push
            end
            requests[key] = nil
            return "answer", find(t.requests[request_stream], message, ANSWER_BIT), asked
        end
    end
    return "message"
end

-- ---------------------------------------------------------------- what is in a message

-- A number with its name, a longer one without, anything else as bytes.
local function in_words(range, values)
    if range:len() > 4 then
        return range:len() <= 8 and tostring(range:uint64()) or tostring(range:bytes())
    end
    local value = range:uint()
    local word = values and values[value]
    return word and value .. " " .. word or tostring(value)
end

-- Parameters: behind a length each on the command interface, else of fixed width.
local function show_parameters(tree, tvb, at, parameters, prefixed)
    local words, index = {}, 1
    while at < tvb:len() do
        local parameter = parameters and parameters[index] or {name = "parameter " .. index, width = 0}
        local length = prefixed and tvb(at, 1):uint() or parameter.width
        at = prefixed and at + 1 or at
        if length == 0 or at + length > tvb:len() then
            length = tvb:len() - at
        end
        if length > 0 then
            local value = tvb(at, length)
            local text = parameter.name .. ": " .. (parameter.text and value:string() or in_words(value, parameter.values))
            tree:add(f.parameter, value, text)
            table.insert(words, text)
        end
        at, index = at + length, index + 1
    end
    return table.concat(words, ", ")
end

local function id_text(row, id)
    if row.ids == "settings" then
        return t.settings[id] and t.settings[id].name or "setting " .. id
    end
    return t.statuses[id] or "status " .. id
end

local function show_ids(tree, tvb, at, row)
    local names = {}
    for index = at, tvb:len() - 1 do
        local text = id_text(row, tvb(index, 1):uint())
        tree:add(f[row.ids == "settings" and "setting" or "status"], tvb(index, 1), text)
        table.insert(names, text)
    end
    return table.concat(names, ", ")
end

-- Entries are id, length, value; names of options that stand behind them have no length, so they end the reading.
local function show_entries(tree, tvb, at, row)
    local words = {}
    while at + 2 <= tvb:len() do
        local id, length = tvb(at, 1):uint(), math.min(tvb(at + 1, 1):uint(), tvb:len() - at - 2)
        local text = id_text(row, id) .. " ="
        if length > 0 then
            local value = tvb(at + 2, length)
            local is_text = row.entries == "names" or (row.ids == "status" and t.textStatuses[id])
            local options = row.ids == "settings" and t.settings[id] and t.settings[id].options
            text = text .. " " .. (is_text and value:string() or in_words(value, options))
        end
        tree:add(f[row.ids == "settings" and "setting" or "status"], tvb(at, 2 + length), text)
        table.insert(words, text)
        at = at + 2 + length
        if row.entries == "capabilities and names" then
            break
        end
    end
    return table.concat(words, ", ")
end

local function show_protobuf(tree, tvb, at, message_type, pinfo, root)
    if at >= tvb:len() then
        return
    end
    tree:add(f.payload, tvb(at))
    local found, protobuf = pcall(Dissector.get, "protobuf")
    if found and protobuf and message_type then
        pinfo.private["pb_msg_type"] = "message," .. message_type
        -- A payload that does not parse is the sender's fault, not a reason to stop here.
        pcall(protobuf.call, protobuf, tvb(at):tvb(), pinfo, root)
    end
end

local function show_message(tree, tvb, known, stream, pinfo, root)
    local row, words = known.row, ""
    tree:add(f.id, tvb(0, 1))
    local is_answer = known.kind == "answer"
    local protobuf = tvb(0, 1):uint() >= 0xf0 and tvb:len() > 1 and row and row.answer
    if protobuf then
        tree:add(f.action, tvb(1, 1))
        show_protobuf(tree, tvb, 2, known.kind == "request" and row.request or row.answer, pinfo, root)
        local is_result = is_answer and row.answer == "generic.ResponseGeneric" and tvb:len() == 4
        return is_result and (t.protobufResults[tvb(3, 1):uint()] or "") or ""
    end
    local at = 1
    local is_buffer = known.kind == "push" and stream == 19
    if (is_answer or known.kind == "push") and not is_buffer and tvb:len() > 1 then
        local codes = stream == 19 and t.sensorResults or t.results
        tree:add(stream == 19 and f.code or f.result, tvb(1, 1))
        words = codes[tvb(1, 1):uint()] or "refused by the camera with " .. tvb(1, 1):uint()
        at = 2
    end
    if at >= tvb:len() or not row then
        return words
    end
    local more
    if row.ids and known.kind == "request" then
        more = show_ids(tree, tvb, at, row)
    elseif row.ids then
        more = show_entries(tree, tvb, at, row)
    elseif is_buffer or stream == 4 and row.name == "fetch-settings" then
        tree:add(f.payload, tvb(at))
        more = tvb:len() - at .. " bytes"
    elseif stream == 7 and tvb:len() > 2 then
        local setting = t.settings[tvb(0, 1):uint()]
        local value = tvb(2, math.max(1, math.min(tvb(1, 1):uint(), tvb:len() - 2)))
        more = (setting and setting.name or "setting " .. tvb(0, 1):uint()) .. " = " .. in_words(value, setting and setting.options)
        tree:add(f.setting, value, more)
    else
        local is_command = stream == 2 or stream == 4
        more = show_parameters(tree, tvb, at, is_answer and row.answers or row.parameters, is_command)
    end
    return words .. (words ~= "" and more ~= "" and ", " or "") .. more
end

-- ---------------------------------------------------------------- one frame

local function remember(pinfo, connection, stream, packet)
    if not pinfo.visited then
        local done = join(connection .. ":" .. stream, packet)
        if done.message then
            local kind, row, asked = name(connection, stream, done.message, pinfo.number)
            done.known = {kind = kind, row = row, asked = asked}
        end
        frames[pinfo.number] = done
    end
    return frames[pinfo.number]
end

local function show_packet(tree, tvb, pinfo, root, connection, stream)
    local packet = tvb(HEADER):bytes()
    local done = remember(pinfo, connection, stream, packet)
    if not done then
        return ""
    end
    tree:add(f.form, tvb(HEADER, done.header), done.form)
    if done.problem then
        tree:add(f.problem, tvb(HEADER), done.problem):add_expert_info(PI_SEQUENCE, PI_WARN, done.problem)
    end
    local known = done.known
    if not known then
        return done.problem or done.form .. ", " .. done.missing .. " bytes missing"
    end
    local label = known.kind .. " " .. (known.row and known.row.name or "unknown")
    local length = done.message:len()
    local message = length > 0 and (done.first and tvb(HEADER + done.header, length):tvb() or done.message:tvb("Message"))
    local subtree = tree:add(kzble, message and message() or tvb(HEADER), label)
    subtree:add(f.kind, known.kind)
    subtree:add(f.name, known.row and known.row.name or "unknown")
    if known.asked then
        subtree:add(f.request, known.asked)
    end
    local words = message and show_message(subtree, message, known, stream, pinfo, root) or ""
    return label .. (words ~= "" and ": " .. words or "")
end

function kzble.dissector(tvb, pinfo, root)
    if tvb:len() < HEADER or tvb(0, 1):uint() ~= 1 then
        return 0
    end
    pinfo.cols.protocol = "KZBLE"
    local tree = root:add(kzble, tvb())
    for index, field in ipairs({"version", "event", "direction", "stream"}) do
        tree:add(f[field], tvb(index - 1, 1))
    end
    tree:add(f.connection, tvb(4, 4))
    local event, stream, connection = tvb(1, 1):uint(), tvb(3, 1):uint(), tvb(4, 4):uint()
    pinfo.cols.src = tvb(2, 1):uint() == 0 and "client " .. connection or "camera"
    pinfo.cols.dst = tvb(2, 1):uint() == 0 and "camera" or "client " .. connection
    if tvb:len() > HEADER then
        tree:add(f.packet, tvb(HEADER))
    end
    local words = ({[0] = "connected", "disconnected"})[event] or ""
    if event == CONNECTED and tvb:len() >= HEADER + 8 then
        local device = tostring(tvb(HEADER, 6):ether()) .. ", type " .. tvb(HEADER + 6, 1):uint()
        tree:add(f.device, tvb(HEADER, 8), device)
        words = words .. ": " .. device
    end
    if event == GATE and tvb:len() > HEADER then
        words = (stream_names[stream] or "descriptor " .. stream) .. " = " .. tvb(HEADER, 1):uint()
    elseif event == PACKET and tvb:len() > HEADER then
        -- The reboot request of an accessory is one raw byte on a stream of messages.
        local raw = t.streams[stream] and t.streams[stream].form == "raw" or stream == 19 and tvb:len() == HEADER + 1
        words = raw and (stream_names[stream] .. ": " .. tvb(HEADER):bytes():tohex(true, " "))
            or show_packet(tree, tvb, pinfo, root, connection, stream)
    end
    pinfo.cols.info = words
    return tvb:len()
end

DissectorTable.get("wtap_encap"):add((wtap_encaps or wtap).USER0, kzble)
