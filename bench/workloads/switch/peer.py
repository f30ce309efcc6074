def main():
    names = "alpha beta gamma delta epsilon zeta eta theta iota kappa".split()
    total, i = 0, 0
    while i < 3000000:
        number = i % 12
        if number == 0:
            total = total + 1
        elif number == 1:
            total = total + 3
        elif number == 2:
            total = total + 5
        elif number == 3:
            total = total + 7
        elif number == 4:
            total = total + 9
        elif number == 5:
            total = total + 11
        elif number == 6:
            total = total + 13
        elif number == 7:
            total = total + 15
        elif number == 8:
            total = total + 17
        elif number == 9:
            total = total + 19
        else:
            total = total - 1
        name = names[i % 10]
        if name == "alpha":
            total = total + 2
        elif name == "beta":
            total = total + 4
        elif name == "gamma":
            total = total + 6
        elif name == "delta":
            total = total + 8
        elif name == "epsilon":
            total = total + 10
        elif name == "zeta":
            total = total + 12
        elif name == "eta":
            total = total + 14
        elif name == "theta":
            total = total + 16
        else:
            total = total - 2
        i = i + 1
    print(total)


main()
