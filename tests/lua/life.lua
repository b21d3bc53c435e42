-- SPDX-License-Identifier: MIT
--
-- Modules are opened, looked at, closed, collected.
local kahost = require "kahost"
local check = require "check"
local equal, results = check.equal, check.results

local path = check.examples .. "/tour"
local tasks = check.modules .. "/caller_module_tasks"

local pid
do
  local m <close> = kahost.open(path)
  pid = m.pid
  equal(m.path, path)
  equal(m.closed, false)
  equal(m.deadline, 30.0)
  equal(tostring(m), ("kahost.Module: %s, process %d"):format(path, pid))
end
check.gone(pid)

local m = kahost.open(path)
pid = m.pid
local greet = m.greet
m:close()
check.gone(pid)
equal(m.closed, true)
equal(m.pid, nil)
equal(tostring(m), "kahost.Module: " .. path .. ", closed")
m:close()
check.text("closed", "the module is closed", greet, "a")
check.fails("closed", m.restart, m)
check.fails("closed", m.stderr, m)

-- Collected: a module, a function that outlives its variable, many of them.
m = kahost.open(path)
pid, greet = m.pid, m.greet
m = nil
collectgarbage()
equal(results(greet("a")), {0, "hello, a"})
greet = nil
collectgarbage()
collectgarbage()
check.gone(pid)
local pids = {}
for i = 1, 20 do pids[i] = kahost.open(path).pid end
collectgarbage()
collectgarbage()
for i = 1, 20 do check.gone(pids[i]) end

-- Functions by name; what has the name of a method is among the functions.
m = kahost.open(path, {deadline = 60})
local names = {}
for name in pairs(m.functions) do names[#names + 1] = name end
table.sort(names)
equal(names, {"ask", "crash", "greet", "join", "nap", "scale", "total"})
assert(m.functions.greet == m.greet and m["greet"] == m.greet)
check.text("refused", "the module has no function \"1\"", function() return m[1] end)
check.fails("argument", function() m.greet = 1 end)
check.fails("argument", function() m.deadline = -1 end)
check.fails("argument", function() m.trace = 9 end)
m:restart()
equal(results(m.greet("b")), {0, "hello, b"})
m:close()

-- A finalizer that calls the module in the middle of a call of it is refused, and does no harm.
m = kahost.open(path, {deadline = 60})
local outcome
for _ = 1, 200 do
  setmetatable({}, {__gc = function() outcome = pcall(m.total, {1}) end})
  local words = {}
  for i = 1, 50 do words[i] = ("w"):rep(i) .. i end
  equal(results(m.join(words, kahost.text("", 4000)))[1], 0)
end
collectgarbage()
equal(type(outcome), "boolean")
m:close()

-- Nor does one that ends calls, or closes the module: that is done when the call is over.
for _, ends in ipairs {function() equal(m:cancel(), false); pcall(m.greet, "x") end, function() local _ <close> = m end} do
  m = kahost.open(path, {deadline = 60})
  local list = {}
  for i = 1, 2000 do list[i] = tostring(i) end
  for _ = 1, 20 do
    if m.closed then m = kahost.open(path, {deadline = 60}) end
    setmetatable({}, {__gc = ends})
    local code, back = m.join(list, kahost.text("", 20000))
    equal(code, 0)
    equal(table.concat(back), table.concat(list))
  end
  m:close()
end

-- Calls, errors and hosts leave nothing behind.
local function descriptors()
  local name = os.tmpname()
  os.execute("ls /proc/$PPID/fd | wc -l >" .. name)
  local file = io.open(name)
  local count = file:read("n")
  file:close()
  os.remove(name)
  return count
end
local function work(calls)
  local worker <close> = kahost.open(path, {deadline = 60, callback = function(value) return value end})
  for i = 1, calls do
    worker.total({i, i})
    worker.ask(i)
    check.fails("argument", worker.total, {1.5})
    check.fails("refused", worker.total, {})
  end
end
work(10)
collectgarbage()
local open_before, memory_before = descriptors(), collectgarbage("count")
work(1000)
for _ = 1, 10 do work(1) end
collectgarbage()
collectgarbage()
equal(descriptors(), open_before)
assert(collectgarbage("count") < memory_before + 20)

-- Surroundings.
local t <close> = kahost.open(tasks, {deadline = 60, env = {KA_TEST_MARK = "here"}, cwd = "/usr"})
equal(results(t.variable("KA_TEST_MARK")), {0, "here"})
equal(results(t.count_variables()), {1})
equal(results(t.directory("")), {0, "/usr"})
for _, transport in ipairs {"signals", "fast", "plain"} do
  local each <close> = kahost.open(tasks, {deadline = 60, transport = transport, spin = 50e-6})
  equal(results(each.add(1, 2)), {0, 3})
end

for _, env in ipairs {{["A=B"] = "c"}, {[""] = "c"}, {["A\0"] = "c"}, {A = "c\0"}} do
  check.fails("argument", kahost.open, path, {env = env})
end

-- A name with a zero byte is another name.
check.fails("argument", kahost.open, path, {["trace\0"] = 1})
check.fails("argument", kahost.open, path, {transport = "fast\0"})
check.fails("refused", function() return t["close\0"] end)
check.fails("refused", function() return t["path\0"] end)
check.fails("argument", function() t["trace\0"] = 1 end)
equal(pcall(kahost.read, path .. "\0"), false)

-- The tables of a file.
local tables = kahost.read(path)
equal(#tables, 7)
equal(tables.filled_at_start, false)
equal(tables[2].name, "scale")
equal(tables[2][1].name, "factor")
equal(tables[2][1].kind, "RealByValue")
equal(tables[2][1].takes, "INTEGER or REAL")
equal(tables[2][1].gives_back, false)
equal(tables[2][2].min_elements, 2)
check.fails("argument", kahost.read, "/nowhere/module")
equal(kahost.version:match("^%d+%.%d+%.%d+$") ~= nil, true)

-- A hook, which is how a program in Lua is interrupted, runs while a call waits.
local hooked <close> = kahost.open(tasks, {deadline = 60, restart = "next call", restart_pause = {0, 0}})
local steps = 0
local function interrupt()
  steps = steps + 1
  if steps == 3 then error("interrupted", 0) end
end
debug.sethook(interrupt, "c")
local ok, problem = pcall(hooked.hang)
debug.sethook()
equal(ok, false)
equal(problem, "interrupted")
equal(results(hooked.add(1, 2)), {0, 3})
