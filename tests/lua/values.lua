-- SPDX-License-Identifier: MIT
--
-- Values of every kind, there and back; and what is refused, since it would be changed.
local kahost = require "kahost"
local check = require "check"
local equal, results = check.equal, check.results

local m <close> = kahost.open(check.examples .. "/tour", {deadline = 60})
local exact <close> = kahost.open(check.examples .. "/tour", {deadline = 60, decimal = true, room = 5})
local tasks <close> = kahost.open(check.modules .. "/caller_module_tasks", {deadline = 60})
local reals <close> = kahost.open(check.modules .. "/caller_module_reals", {deadline = 60, decimal = true})

-- Every kind; outputs at the end need not be passed.
equal(results(m.total({1, -2, 3})), {0, {1, -2, 3}, 2})
equal(results(m.total({2147483647}, nil)), {0, {2147483647}, 2147483647})
equal(results(m.scale(2, {1.5, 2, "0.25"})), {0, {3.0, 4.0, 0.5}, 4.0})
equal(results(exact.scale("2.5", {1, "2.5"})), {0, {"2.5", "6.25"}, "6.25"})
equal(results(m.greet("world")), {0, "hello, world"})
equal(results(m.join({"a", "b"}, "")), {0, {"a", "b"}, "ab"})
equal(results(m.join({"a\0b", ""}, nil)), {0, {"a\0b", ""}, "a\0b"})
equal(results(m.ask(5)), {0, 0, 0})
equal(results(tasks.add(2, 40)), {0, 42})
equal(results(tasks.add(2, 40, 7)), {0, 42})

-- VarArg: by the type of Lua, given back what was a reference.
equal(results(m.join({"x"}, nil, 1, 2.5, "s", {1}, {1, 2.5}, {"s"})), {0, {"x"}, "x 2 5 8 2 6 8"})
equal(results(m.join({"x"}, nil, kahost.ref(1), 2, kahost.ref({"a", "b"}))), {0, {"x"}, "x 2 2 9", 1, {"a", "b"}})
equal(results(reals.leave_vararg(kahost.ref(kahost.real("0.1")))), {0, "0.1"})
equal(results(reals.leave_vararg(kahost.ref(kahost.real({1, "0.1"})))), {0, {"1", "0.1"}})
equal(results(tasks.describe()), {0})
equal(results(tasks.describe(kahost.real({}))), {500})

-- What a module withdraws is nil; a null REAL is nil, too.
equal(results(tasks.describe(kahost.ref("text"))), {801, "text"})
local at, size = 48 + 32, 32
if pcall(tasks.forge_real, 1, 2, 40 + 24, 24) then at, size = 40 + 24, 24 end
equal(results(tasks.forge_real(1, 2, at, size)), {0, "nil", 2.0})

-- Room of strings: the module's, one of its own, never less than the length.
equal(results(exact.greet("w")), {18, ""})
equal(results(exact.greet("w", kahost.text("", 8))), {0, "hello, w"})
equal(results(exact.greet("w", "12345678")), {0, "hello, w"})
equal(results(m.join(kahost.text({"a"}, 10), nil)), {0, {"a"}, "a"})
for length = 0, 40 do
  local text = ("x"):rep(length)
  equal(results(m.join({text}, kahost.text("", 40))), {0, {text}, text})
end
local all = {}
for byte = 0, 255 do all[byte + 1] = string.char(byte) end
equal(results(m.join({table.concat(all)})), {0, {table.concat(all)}, table.concat(all)})

-- Numbers of text are the REAL that is sent; those of Lua, too.
for _, text in ipairs {"0.1", "-0.1", "1E+20", "123456789012345", "1234567890123456", "1E-130", "0"} do
  equal(results(reals.show_record(text)), {0, text})
end
equal(results(reals.show_record(0.1)), {0, "0.1"})
equal(results(reals.show_record(1234567890123456)), {0, "1234567890123456"})
equal(results(reals.show_record(kahost.rounded("12345678901234567890"))), {0, "1.234567890123457E+19"})
for _ = 1, 200 do
  local text = ("%d.%d5"):format(math.random(1, 99999), math.random(0, 9999))
  equal(results(reals.leave_reference(text)), {0, text})
end

-- Refused: nothing is changed in silence.
local function refused(text, f, ...) return check.text("argument", text, f, ...) end
equal(refused("add: argument 1 (a): 2.0 is a float, not an integer", tasks.add, 2.0, 1).argument, 1)
refused("add: argument 2 (b): 2147483648 does not fit 32 bits", tasks.add, 1, 2147483648)
refused("add: argument 2 (b): -2147483649 does not fit 32 bits", tasks.add, 1, -2147483649)
refused("add: argument 1 (a): a string, not an integer", tasks.add, "1", 1)
refused("add: argument 1 (a): a boolean, not an integer", tasks.add, true, 1)
refused("add: argument 1 (a): a nil, not an integer", tasks.add, nil, 1)
refused("total: argument 1 (values): 1 is an integer, not a list of integers", m.total, 1)
refused("total: argument 1 (values), element 2: a nil, not an integer", m.total, {1, nil, 3})
refused("total: argument 1 (values), element 1: 4294967296 does not fit 32 bits", m.total, {1 << 32})
refused("scale: argument 1 (factor): nan cannot be held by a REAL", m.scale, 0 / 0 * -1 ~= 0 and math.abs(0 / 0) or 0, {1, 2})
refused("scale: argument 1 (factor): inf cannot be held by a REAL", m.scale, math.huge, {1, 2})
refused("scale: argument 1 (factor): 1e+127 cannot be held by a REAL", m.scale, 1e127, {1, 2})
refused("scale: argument 1 (factor): \"1_000\" is not a REAL", m.scale, "1_000", {1, 2})
refused("scale: argument 2 (values), element 2: \"x\" is not a REAL", m.scale, 1, {1, "x"})
refused("scale: argument 2 (values), element 1: 12345678901234567 has more decimals than a REAL holds; "
        .. "1.23456789012346E+16 is the nearest (kahost.rounded allows it)", m.scale, 1, {12345678901234567, 2})
refused("greet: argument 1 (name): a string with a zero byte, where it would end", m.greet, "a\0b")
refused("greet: argument 1 (name): 1 is an integer, not a string", m.greet, 1)
refused("join: argument 1 (words): a string, not a list of strings", m.join, "ab")
refused("join: argument 3 (more), element 2: a list of several types", m.join, {"a"}, nil, {1, "b"})
refused("join: argument 3 (more): a list whose type cannot be seen; kahost.real makes one of REALs", m.join, {"a"}, nil, {})
refused("join: argument 3 (more): a function, not a number, a string or a list", m.join, {"a"}, nil, print)
check.fails("argument", kahost.text, "a", 0)
check.fails("argument", kahost.text, "a", 1.5)

-- Refused by the module's tables.
equal(check.text("refused", "add: takes 3 arguments (a, b, sum), got 1", tasks.add, 1).retry, "no")
check.text("refused", "nap: takes 1 argument (seconds), got 2", m.nap, 1, 2)
check.text("refused", "total: argument 1 (values) is IntArray: takes at least 1 element of INTEGER by reference, got 0 elements of INTEGER", m.total, {})
check.text("refused", "the module has no function \"gret\"", function() return m.gret end)
local fifty = {}
for i = 1, 50 do fifty[i] = i end
equal(results(tasks.describe(table.unpack(fifty))), {50 * 201})
fifty[51] = 51
check.fails("refused", tasks.describe, table.unpack(fifty))

-- Many values.
local many = {}
for i = 1, 10000 do many[i] = i end
local code, back = m.total(many)
equal(code, 0)
equal(#back, 10000)
equal(back[10000], 10000)
