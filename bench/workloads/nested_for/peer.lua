local sum = 0
for i = 0, 3999 do
    for j = 0, 3999 do
        if (i + j) % 3 == 0 then
            sum = sum + i
        else
            sum = sum - j
        end
    end
end
print(string.format("%d", sum))
