// Backtracking, garbage collection and the debug dump.
#include "classifier/fixture.h"

namespace orvo {
namespace test {
namespace {

TEST_F(ClassifierTest, PopsUndoTheirOwnLevelOnly) {
  int const xy = atom(lt(x, y)), yz = atom(lt(y, z));
  dpll::Clause* cl = clause(1, 1);
  add(0, {xy});
  c.add_btpoint_atom(9);
  EXPECT_EQ(trail(), 0u);  // level 0 records nothing
  c.push_backtrack_point();
  add(0, {xy, xy});  // already there: the pop still takes it out
  add(0, {cl, cl});
  c.add_btpoint_atom(9);
  c.add_btpoint_atom(4);
  c.push_backtrack_point();
  add(0, {yz});
  c.pre_add_atom(yz, 1);
  EXPECT_EQ(counts(0), (Counts{{"<", 4}, {"x", 3}, {"y", 4}, {"z", 1}}));
  EXPECT_EQ(cl->ref_count(), 3u);
  c.pop_backtrack_point();
  EXPECT_EQ(counts(0), (Counts{{"<", 3}, {"x", 3}, {"y", 3}}));
  EXPECT_TRUE(c.has_atom(xy, 0) && !c.has_atom(yz, 0) && c.has_atom(yz, 1) && trail() == 7);
  c.pop_backtrack_point();
  // Each atom cell withdrew the symbols once; the level-0 registration's count stays.
  EXPECT_EQ(counts(0), (Counts{{"<", 1}, {"x", 1}, {"y", 1}}));
  EXPECT_TRUE(!c.has_atom(xy, 0) && !in_group(cl, 0) && c.get_btpoint_atoms().empty());
  EXPECT_EQ(cl->ref_count(), 1u);
  EXPECT_EQ(counts(1), (Counts{{"<", 1}, {"y", 1}, {"z", 1}}));
  EXPECT_TRUE(trail() == 0 && c.check_invariants());

  c.set_A_groups({0});
  c.pop_backtrack_point();  // no open point: only the flag changes
  EXPECT_FALSE(c.symbols_sets_valid());
  EXPECT_TRUE(c.has_atom(yz, 1) && c.get_A_symbols().size() == 3);
  drop(cl);
}

TEST_F(ClassifierTest, GroupsCreatedInALevelAreEmptiedWholesale) {
  forget_frees();
  dpll::Clause *cl = clause(2, 1), *only_ours = clause(3, 0);
  add(0, {atom(lt(z, z))});
  c.push_backtrack_point();
  add(0, {cl, only_ours});
  EXPECT_EQ(c.new_group_index(), 1);
  add(1, {atom(lt(x, y))});
  add(1, {cl});
  EXPECT_EQ(cl->ref_count(), 3u);
  // The scratch result of the symbol walk shows whether the pop walks an atom.
  auto const& scratch = c.get_term_symbols(z);
  c.pop_backtrack_point();
  EXPECT_EQ(names(scratch), (Names{"z"}));
  ASSERT_EQ(c.get_groups().size(), 2u);
  EXPECT_TRUE(c.get_groups()[1].atoms.empty() && c.get_groups()[1].clauses.empty());
  EXPECT_TRUE(counts(1).empty() && !in_group(cl, 0) && cl->ref_count() == 1);
  EXPECT_TRUE(was_freed(only_ours) && c.new_group_index() == 2);
  drop(cl);
}

TEST_F(ClassifierTest, CollectionDropsDerivedDataAndUnsharedClauses) {
  forget_frees();
  dpll::Clause *alone = clause(5, 0), *shared = clause(6, 1), *twice = clause(7, 0);
  add(0, {atom(lt(x, y))});
  add(0, {alone, shared, twice});
  add(1, {twice});
  c.set_A_groups({0});
  c.add_btpoint_atom(8);
  c.add_temporary_A_atom(9);
  c.gc(false);
  EXPECT_TRUE(c.get_A_symbols().empty() && c.get_B_symbols().empty());
  EXPECT_TRUE(c.get_atom_AB_flags().empty() && !c.symbols_sets_valid());
  EXPECT_TRUE(in_group(alone, 0) && c.get_A_groups().size() == 1);
  c.gc(true);
  EXPECT_TRUE(was_freed(alone) && !in_group(alone, 0));
  EXPECT_TRUE(in_group(shared, 0) && in_group(twice, 0) && in_group(twice, 1));
  EXPECT_FALSE(was_freed(shared) || was_freed(twice));
  EXPECT_TRUE(shared->ref_count() == 2 && twice->ref_count() == 2);
  EXPECT_TRUE(c.has_atom(0, 0) && counts(0).size() == 3);
  EXPECT_TRUE(c.get_btpoint_atoms().size() == 1 && c.get_temporary_A_atoms().size() == 1);
  drop(shared);  // the classifier's destruction frees the two remaining clauses
}

TEST_F(ClassifierTest, FullCollectionStrikesTrailCellsOfFreedClauses) {
  forget_frees();
  dpll::Clause *released = clause(10, 1), *kept = clause(11, 1);
  c.push_backtrack_point();
  add(0, {released});
  add(0, {atom(lt(x, y))});
  add(0, {kept});
  drop(released);  // the host lets go: only the classifier's reference is left
  c.gc(true);
  EXPECT_TRUE(was_freed(released) && !was_freed(kept));
  EXPECT_EQ(trail(), 3u);   // marker, atom, kept
  c.pop_backtrack_point();  // must not release `released` again
  EXPECT_TRUE(!c.has_atom(0, 0) && !in_group(kept, 0) && kept->ref_count() == 1);
  EXPECT_TRUE(c.check_invariants());
  drop(kept);
}

TEST_F(ClassifierTest, DebugDumpText) {
  EXPECT_EQ(dump(), "BEGIN CLASSIFIER DUMP\nA INDICES: \nGROUPS:\nEND CLASSIFIER DUMP\n");
  add(0, {3, 1});
  c.new_group_index();
  c.set_A_groups({0});
  EXPECT_EQ(dump(),
            "BEGIN CLASSIFIER DUMP\nA INDICES: 0 \nGROUPS:\n#0: 1 3 \n#1: \nEND CLASSIFIER DUMP\n");
  std::string listed;
  for (int i = 0; i < 20; ++i) {
    add(2, {i * 7 % 20 * 5});  // multiples of 5 up to 95: hash order is not numeric
    listed += std::to_string(i * 5) + " ";
  }
  add(31, {40, 9, 33});
  c.set_A_groups({5, 31});
  std::string const text = dump();
  EXPECT_NE(text.find("\nA INDICES: 31 5 \n"), std::string::npos) << text;
  EXPECT_NE(text.find("\n#2: " + listed + "\n#3: \n"), std::string::npos) << text;
  EXPECT_NE(text.find("\n#31: 9 33 40 \nEND CLASSIFIER DUMP\n"), std::string::npos) << text;
}

}  // namespace
}  // namespace test
}  // namespace orvo
