local function weight(a, b)
    return a + b % 5
end
local sum, i = 0, 0
while i < 10000000 do
    sum = weight(sum, i)
    i = i + 1
end
print(sum)
