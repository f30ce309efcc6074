local found, sum, match = 0, 0, string.match
for line in io.lines("lines.txt") do
    local country, number = match(line, "call %+(%d+)%-(%d+)")
    if country then
        found = found + 1
        sum = sum + tonumber(country) + #number
    end
end
print(found .. " " .. sum)
