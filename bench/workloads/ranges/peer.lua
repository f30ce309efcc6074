local match, floor = string.match, math.floor
local function number(text)
    local a, b, c, d = match(text, "(%d+)%.(%d+)%.(%d+)%.(%d+)")
    return ((a * 256 + b) * 256 + c) * 256 + d
end
local firsts, lasts, values = {}, {}, {}
for line in io.lines("ranges.csv") do
    local first, bits, value = match(line, "([^/]+)/(%d+),(%d+)")
    local i = #firsts + 1
    firsts[i] = number(first)
    lasts[i] = firsts[i] + 2 ^ (32 - bits) - 1
    values[i] = value
end
local found, sum = 0, 0
for line in io.lines("addresses.txt") do
    local address, low, high = number(line), 0, #firsts
    while low < high do
        local middle = floor((low + high + 1) / 2)
        if firsts[middle] <= address then
            low = middle
        else
            high = middle - 1
        end
    end
    if low > 0 and address <= lasts[low] then
        found = found + 1
        sum = sum + tonumber(values[low])
    end
end
print(found .. " " .. sum)
