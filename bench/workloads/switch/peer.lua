local names = {[0] = "alpha", "beta", "gamma", "delta", "epsilon", "zeta", "eta", "theta", "iota", "kappa"}
local sum, i = 0, 0
while i < 3000000 do
    local number = i % 12
    if number == 0 then sum = sum + 1
    elseif number == 1 then sum = sum + 3
    elseif number == 2 then sum = sum + 5
    elseif number == 3 then sum = sum + 7
    elseif number == 4 then sum = sum + 9
    elseif number == 5 then sum = sum + 11
    elseif number == 6 then sum = sum + 13
    elseif number == 7 then sum = sum + 15
    elseif number == 8 then sum = sum + 17
    elseif number == 9 then sum = sum + 19
    else sum = sum - 1 end
    local name = names[i % 10]
    if name == "alpha" then sum = sum + 2
    elseif name == "beta" then sum = sum + 4
    elseif name == "gamma" then sum = sum + 6
    elseif name == "delta" then sum = sum + 8
    elseif name == "epsilon" then sum = sum + 10
    elseif name == "zeta" then sum = sum + 12
    elseif name == "eta" then sum = sum + 14
    elseif name == "theta" then sum = sum + 16
    else sum = sum - 2 end
    i = i + 1
end
print(sum)
