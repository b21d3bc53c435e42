-- SPDX-License-Identifier: MIT
--
-- What went wrong, as a table; and what the module is afterwards.
local kahost = require "kahost"
local check = require "check"
local equal, results = check.equal, check.results

local path = check.examples .. "/tour"
local tasks = check.modules .. "/caller_module_tasks"

local function again(options)
  options.restart, options.restart_pause = "next call", {0, 0}
  return kahost.open(tasks, options)
end

local m <close> = again {deadline = 60}
local died = check.text("died", tasks .. ": the host was killed by SIGABRT (Aborted) in a call of \"die_by\"", m.die_by, 6)
equal(died.retry, "unsure")
equal(died.signal, 6)
equal(died.exit_status, nil)
assert(died.report:find("die_by") and died.report:find("process"))
local left = check.fails("died", m.leave, 7)
equal(left.exit_status, 7)
equal(left.signal, nil)
equal(results(m.give_code(3)), {3})
local cried = check.fails("died", m.cry_and_die, "last words\n")
assert(cried.report:find("last words"))
equal(m:stderr(), "last words\n")
m.deadline = 0.2
equal(m.deadline, 0.2)
local late = check.fails("deadline passed", m.hang)
equal(late.retry, "unsure")
m.deadline = 60
equal(results(m.give_code(4)), {4})

local once <close> = kahost.open(tasks, {deadline = 60})
check.fails("died", once.fault)
check.fails("closed", once.give_code, 1)
equal(once.pid, nil)
once:restart()
equal(results(once.give_code(5)), {5})

-- A call that is too big says what it needs; with segment_max it grows, or a restart makes room.
local numbers = {}
for i = 1, 100000 do numbers[i] = i end
local small <close> = kahost.open(path, {deadline = 60, segment = 100000})
assert(check.fails("too big", small.total, numbers).needed > 400000)
local growing <close> = kahost.open(path, {deadline = 60, segment = 100000, segment_max = 1 << 20})
equal(results(growing.total(numbers))[1], 0)

check.fails("not started", kahost.open, "/nowhere/module")
assert(tostring(check.fails("not started", kahost.open, check.modules .. "/caller_module_no_library")))
check.fails("not started", kahost.open, "values.lua")
check.text("argument", "misspelt is no option of kahost.open", kahost.open, path, {misspelt = 1})
check.text("argument", "deadline is 0; it is a number of seconds", kahost.open, path, {deadline = 0})
check.text("argument", "restart is always; it is one of never, next call, at once", kahost.open, path, {restart = "always"})
check.fails("argument", kahost.open, path, {segment = 1.5})
check.fails("argument", kahost.open, path, {segment = 1})
check.fails("argument", kahost.open, path, {env = {A = 1}})
check.fails("argument", kahost.open, path, {env = {"A=1"}})
check.fails("argument", kahost.open, path, {decimal = 1})
check.fails("argument", kahost.open, path, {room = -1})
check.fails("argument", kahost.open, path, {restart_pause = 1})
check.fails("argument", kahost.open, path, {[1] = 1})
check.fails("argument", kahost.open, path, 5)
equal(pcall(kahost.open), false)
