-- SPDX-License-Identifier: MIT
--
-- Call-backs: they answer, fail, yield, and are left.
local kahost = require "kahost"
local check = require "check"
local equal, results = check.equal, check.results

local path = check.examples .. "/tour"
local many = check.modules .. "/caller_module_tasks"
local m <close> = kahost.open(path, {deadline = 60, callback = function(value) return value * 2 end})
local tasks <close> = kahost.open(many, {deadline = 60})

equal(results(m.ask(21)), {0, 42, 42})
m.callback = nil
equal(results(m.ask(21)), {0, 0, 42})
m.callback = function(value) return value + 1 end
equal(results(m.ask(1)), {0, 2, 44})
tasks.callback = function(value) return value end
equal(results(tasks.ask_many(1000)), {0, 499500})

-- An error comes out as it is; the others of that call are not asked, the next call is.
local asked = 0
local thrown = {}
tasks.callback = function() asked = asked + 1; error(thrown) end
local ok, problem = pcall(tasks.ask_many, 10)
equal(ok, false)
assert(problem == thrown)
equal(asked, 1)
tasks.callback = function() error() end
ok, problem = pcall(tasks.ask_many, 10)
equal(ok, false)
equal(problem, nil)
tasks.callback = function() return 1 end
equal(results(tasks.ask_many(10)), {0, 10})
for _, answer in ipairs {1.5, "1", 1 << 40, {}} do
  tasks.callback = function() return answer end
  check.fails("argument", tasks.ask_many, 2)
end
tasks.callback = function() end
check.text("argument", "the call-back gave nil; it is to give an integer of 32 bits", tasks.ask_many, 2)

-- Other modules may be called from one, the own not.
m.callback = function(value)
  local _, sum = tasks.add(value, 1)
  check.text("argument", "the module is in a call; a call-back of it has to return first", m.ask, 1)
  check.fails("argument", m.close, m)
  check.fails("argument", m.restart, m)
  equal(type(m.pid), "number")
  m.trace = 0
  return sum
end
equal(results(m.ask(41)), {0, 42, 86})

-- It may yield: another part of the program has the answer.
m.callback = function(value) return coroutine.yield(value) end
local function answered(start, ...)
  local co = coroutine.create(function(...) return results(m.ask(...)) end)
  local _, question = assert(coroutine.resume(co, start))
  equal(question, start)
  local fine, list = coroutine.resume(co, ...)
  return fine, list
end
ok, problem = answered(7, 9)
equal(problem, {0, 9, 95})
tasks.callback = function(value) return coroutine.yield(value) end
local co = coroutine.wrap(function() return results(tasks.ask_many(100)) end)
local question = co()
for i = 0, 98 do
  equal(question, i)
  question = co(i + 1)
end
equal(co(100), {0, 5050})
ok, problem = answered(7, "no integer")
equal(ok, false)
equal(problem.class, "argument")

-- While it waits for its answer the module is in a call. A coroutine that is closed ends it, and so does cancel.
local r <close> = kahost.open(path, {deadline = 60, restart = "next call", restart_pause = {0, 0}, callback = m.callback})
local function in_call()
  local suspended = coroutine.create(function() return results(r.ask(1)) end)
  assert(coroutine.resume(suspended))
  check.text("argument", "the module is in a call; a call-back of it has to return first", r.ask, 1)
  return suspended
end
coroutine.close(in_call())
equal(results(r.greet("a")), {0, "hello, a"})
local left = in_call()
equal(r:cancel(), true)
equal(r:cancel(), false)
equal(results(r.greet("b")), {0, "hello, b"})
ok, problem = coroutine.resume(left, 5)
equal(ok, false)
equal(problem.class, "cancelled")
equal(results(r.greet("c")), {0, "hello, c"})

-- A coroutine that ended by an error, which closes nothing, and one that was collected have left the call.
for _, fails in ipairs {function() r.total({1.5}) end, function() r.total({}) end, function() return error("own", r.ask(1)) end} do
  r.callback = function() error("own") end
  local failed = coroutine.create(fails)
  equal(coroutine.resume(failed), false)
  equal(results(r.greet("d")), {0, "hello, d"})
  equal(coroutine.close(failed), false)
  equal(results(r.greet("e")), {0, "hello, e"})
end
r.callback = m.callback
in_call()
in_call = nil
collectgarbage()
collectgarbage()
equal(results(r.greet("f")), {0, "hello, f"})

-- What closes the module in its own call-back, or in a hook, ends the call.
for _, transport in ipairs {"signals", "fast", "plain"} do
  local closed <const> = kahost.open(path, {deadline = 60, transport = transport})
  closed.callback = function() local _ <close> = closed end
  check.text("cancelled", "the call was ended in its call-back", closed.ask, 1)
  check.fails("closed", closed.ask, 1)
end
for _, ends in ipairs {function(module) local _ <close> = module end, function(module) assert(module:cancel()) end} do
  local hooked = kahost.open(path, {deadline = 60})
  local pid, calls = hooked.pid, 0
  debug.sethook(function()
    calls = calls + 1
    if calls == 4 then ends(hooked) end
  end, "c")
  ok, problem = pcall(hooked.nap, 60)
  debug.sethook()
  equal(ok, false)
  equal(tostring(problem), "the call was ended in a hook")
  equal(problem.class, "cancelled")
  check.gone(pid)
end

-- One that is never answered is collected with its module.
local pid
do
  local dropped = kahost.open(path, {deadline = 60, callback = function() coroutine.yield() end})
  pid = dropped.pid
  local suspended = coroutine.create(function() dropped.ask(1) end)
  assert(coroutine.resume(suspended))
end
collectgarbage()
collectgarbage()
check.gone(pid)
