local buffer, total, found, hits, i = "", 0, 0, 0, 0
local find, sub, upper = string.find, string.sub, string.upper
while i < 2000000 do
    local line = "item-" .. i .. ";"
    buffer = buffer .. line
    if #buffer > 1000 then
        total = total + #upper(buffer)
        if find(buffer, "99;", 1, true) then
            found = found + 1
        end
        buffer = ""
    end
    if sub(line, 3, 7) == "em-12" then
        hits = hits + 1
    end
    i = i + 1
end
print(total .. " " .. found .. " " .. hits)
