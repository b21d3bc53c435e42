-- SPDX-License-Identifier: MIT
--
-- For memory.c: calls with every kind of value, and a call-back that fails.
local kahost = require "kahost"
local path = os.getenv("KA_TEST_EXAMPLES") .. "/tour"
local m = kahost.open(path, {deadline = 60, restart = "next call", restart_pause = {0, 0}, stderr = "inherit",
                             callback = function(value) return value + #{value} end})
return function()
  local code, values, largest = m.scale(2.5, {1, "2.5", 3.5})
  assert(code == 0 and values[2] == 6.25 and largest == 8.75)
  local _, words, line, more = m.join({"one", "two"}, kahost.text("", 100), 1.5, kahost.ref({"a", "b"}))
  assert(words[1] == "one" and line == "onetwo 5 9" and more[2] == "b")
  local _, answer = m.ask(4)
  assert(answer == 5)
  assert(not pcall(m.total, {1, 2.5}))
end
