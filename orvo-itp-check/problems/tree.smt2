; A tree: R has the children A3 and B1, A3 has A1 and A2.
(set-logic QF_LIA)
(declare-fun a () Int)
(declare-fun b () Int)
(declare-fun c () Int)
(declare-fun d () Int)
(assert (! (= a 1) :named A1))
(assert (! (= b 2) :named A2))
(assert (! (= c (+ a b)) :named A3))
(assert (! (= d 5) :named B1))
(assert (! (= c d) :named R))
(check-sat)
; 1: right
(get-interpolants (A1 (A2) A3) (B1) R)
; 2: A2's interpolant leaves b out: A3's step fails
(get-interpolants (A1 (A2) A3) (B1) R)
; 3: B1's is too weak for the root: both children of the root are invalid
(get-interpolants (A1 (A2) A3) (B1) R)
; 4: A1's uses b, which only its sibling A2 holds (B-local)
(get-interpolants (A1 (A2) A3) (B1) R)
; 5: A2's cannot be read (a sort error): A3's step is not checked; the rest
; is read and checked as usual
(get-interpolants (A1 (A2) A3) (B1) R)
