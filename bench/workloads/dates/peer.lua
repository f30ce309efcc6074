local text, shown, total, i = "2024-01-31 10:20:30", nil, 0, 0
local pattern = "(%d+)-(%d+)-(%d+) (%d+):(%d+):(%d+)"
while i < 300000 do
    local year, month, day, hour, min, sec = text:match(pattern)
    local start = os.time{year = year, month = month, day = day, hour = hour, min = min, sec = sec}
    local later = start + i % 100000 * 7
    shown = os.date("%Y-%m-%d %H:%M:%S", later)
    total = total + os.difftime(later, start)
    if i % 1000 == 999 then text = shown end
    i = i + 1
end
print(shown .. " " .. string.format("%d", total))
