-- SPDX-License-Identifier: MIT
--
-- For memory.c: modules are opened, asked, read and closed.
local kahost = require "kahost"
local path = os.getenv("KA_TEST_EXAMPLES") .. "/tour"
return function()
  do
    local m <close> = kahost.open(path, {deadline = 60, env = {A = "b"}, cwd = "/"})
    assert(m.nap(0) == 0)
  end
  assert(#kahost.read(path) == 7)
  collectgarbage()
end
