-- SPDX-License-Identifier: MIT
--
-- What the tests of the Lua module share. A script ends with an error when something is not as it should be.
local check = {}

check.modules = os.getenv("KA_TEST_MODULES")   -- folder of the modules of the caller's tests
check.examples = os.getenv("KA_TEST_EXAMPLES") -- folder of the examples

local function shown(value)
  if type(value) ~= "table" or getmetatable(value) then return math.type(value) == "float" and ("%.17g (float)"):format(value) or tostring(value) end
  local parts = {}
  for i = 1, #value do parts[i] = shown(value[i]) end
  return "{" .. table.concat(parts, ", ") .. "}"
end

-- Integers and floats are different values here.
function check.equal(found, wanted)
  if shown(found) ~= shown(wanted) then error(("got %s, not %s"):format(shown(found), shown(wanted)), 2) end
end

-- The results of a call as a list, with what tells nil from nothing.
function check.results(...)
  local list = {...}
  for i = 1, select("#", ...) do if list[i] == nil then list[i] = "nil" end end
  return list
end

-- The error of a call that must fail, a table of this class.
function check.fails(class, f, ...)
  local ok, problem = pcall(f, ...)
  if ok then error("no error", 2) end
  if type(problem) ~= "table" or problem.class ~= class then error(("an error of another class: %s"):format(tostring(problem)), 2) end
  return problem
end

function check.text(class, text, f, ...)
  local problem = check.fails(class, f, ...)
  if tostring(problem) ~= text then error(("the text is: %s"):format(problem), 2) end
  return problem
end

-- A process is gone, or nobody waits for it any more.
function check.gone(pid)
  for _ = 1, 60000 do
    local file = io.open(("/proc/%d/status"):format(pid))
    local status = file and file:read("a") or ""
    if file then file:close() end
    if status == "" or status:find("State:\tZ") then return end
    os.execute("sleep 0.001")
  end
  error("process " .. pid .. " lives", 2)
end

return check
