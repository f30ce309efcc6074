local i, a, b, sum = 0, 1, 2, 0
while i < 10000000 do
    a = a + i % 7
    b = (b * 3 + a) % 1000003
    if b > 500000 then
        sum = sum + 1
    else
        sum = sum + b % 2
    end
    i = i + 1
end
print(a .. " " .. b .. " " .. sum)
