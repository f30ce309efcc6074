void main() {
    array<string> names = {"alpha", "beta", "gamma", "delta", "epsilon",
                           "zeta", "eta", "theta", "iota", "kappa"};
    int64 sum = 0, i = 0;
    while (i < 3000000) {
        switch (i % 12) {
            case 0: sum = sum + 1; break;
            case 1: sum = sum + 3; break;
            case 2: sum = sum + 5; break;
            case 3: sum = sum + 7; break;
            case 4: sum = sum + 9; break;
            case 5: sum = sum + 11; break;
            case 6: sum = sum + 13; break;
            case 7: sum = sum + 15; break;
            case 8: sum = sum + 17; break;
            case 9: sum = sum + 19; break;
            default: sum = sum - 1; break;
        }
        const string name = names[i % 10];
        if (name == "alpha") sum = sum + 2;
        else if (name == "beta") sum = sum + 4;
        else if (name == "gamma") sum = sum + 6;
        else if (name == "delta") sum = sum + 8;
        else if (name == "epsilon") sum = sum + 10;
        else if (name == "zeta") sum = sum + 12;
        else if (name == "eta") sum = sum + 14;
        else if (name == "theta") sum = sum + 16;
        else sum = sum - 2;
        i = i + 1;
    }
    print(sum + "\n");
}
