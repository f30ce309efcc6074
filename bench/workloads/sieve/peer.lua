local composite, limit, count = {}, 2000000, 0
for i = 0, limit do composite[i] = false end
for i = 2, limit do
    if composite[i] == false then
        count = count + 1
        for j = i * i, limit, i do
            composite[j] = true
        end
    end
end
print(count)
