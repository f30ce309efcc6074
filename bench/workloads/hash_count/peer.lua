local counts, keys, i = {}, {}, 0
while i < 2000000 do
    local key = "key" .. i * 7919 % 50000
    counts[key] = (counts[key] or 0) + 1
    i = i + 1
end
for key in pairs(counts) do keys[#keys + 1] = key end
table.sort(keys)
local sum = 0
for n = 0, #keys - 1 do
    local key = keys[n + 1]
    sum = (sum * 31 + counts[key] * n + key:byte()) % 1000003
end
print(#keys .. " " .. sum .. " " .. keys[2])
